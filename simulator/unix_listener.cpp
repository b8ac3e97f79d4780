#include "simulator/unix_listener.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <system_error>
#include <utility>

namespace quillmere {

namespace {

constexpr int backlog = 128;

[[noreturn]] void fail(int errorNumber, const std::string& what) {
  throw std::system_error(errorNumber, std::generic_category(), what);
}

/// Whoever connects next waits until a connection has ended, and the listener doesn't spin
/// meanwhile.
void waitForDescriptors(const Descriptor& stop) {
  constexpr int pauseMs = 10;
  pollfd entry{.fd = stop.number(), .events = POLLIN, .revents = 0};
  static_cast<void>(::poll(&entry, 1, pauseMs));
}

/// Whether the socket at `path` is left over from a program that is gone: the one case in which
/// nobody else's socket is in the way. A fresh socket does not wait for a program that lives but is
/// too busy to take us.
bool isStale(const std::string& path) {
  const auto probe = UnixSocket::create();
  if (!probe) return false;
  return probe->connectTo(path) == ECONNREFUSED;
}

}  // namespace

UnixListener::UnixListener(std::string path) : socketPath(std::move(path)) {
  if (socketPath.size() > maxSocketPathBytes) fail(ENAMETOOLONG, socketPath);
  if (const auto folder = std::filesystem::path(socketPath).parent_path(); !folder.empty()) {
    std::filesystem::create_directories(folder);
  }
  if (std::filesystem::exists(std::filesystem::symlink_status(socketPath))) {
    if (!std::filesystem::is_socket(std::filesystem::symlink_status(socketPath)) ||
        !isStale(socketPath)) {
      fail(EADDRINUSE, socketPath);
    }
    std::filesystem::remove(socketPath);
  }

  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) fail(errno, "pipe");
  stopOut = Descriptor(ends[0]);
  stopIn = Descriptor(ends[1]);
  listener = Descriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::ranges::copy(socketPath, address.sun_path);
  const auto length =
      static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + socketPath.size() + 1);
  if (::bind(listener.number(), reinterpret_cast<const sockaddr*>(&address), length) != 0 ||
      ::listen(listener.number(), backlog) != 0) {
    fail(errno, socketPath);
  }
}

UnixListener::~UnixListener() {
  ::unlink(socketPath.c_str());
}

std::optional<Descriptor> UnixListener::accept() const {
  for (;;) {
    std::array<pollfd, 2> entries = {pollfd{listener.number(), POLLIN, 0},
                                     pollfd{stopOut.number(), POLLIN, 0}};
    if (::poll(entries.data(), entries.size(), -1) < 0) continue;
    if (entries[1].revents != 0) return std::nullopt;
    Descriptor connection(::accept4(listener.number(), nullptr, nullptr, SOCK_CLOEXEC));
    if (connection.isOpen()) return connection;
    if (errno == EMFILE || errno == ENFILE) waitForDescriptors(stopOut);
  }
}

void UnixListener::stop() const {
  static_cast<void>(!::write(stopIn.number(), "", 1));
}

}  // namespace quillmere
