#include "peers/unix_listener.hpp"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <system_error>
#include <utility>

namespace quillmere {

namespace {

[[noreturn]] void fail(int errorNumber, const std::string& what) {
  throw std::system_error(errorNumber, std::generic_category(), what);
}

/// The next peer waits until a connection has ended, and the listener does not spin meanwhile.
void waitForDescriptors(const Descriptor& stop) {
  constexpr int pauseMs = 10;
  pollfd entry{.fd = stop.number(), .events = POLLIN, .revents = 0};
  static_cast<void>(::poll(&entry, 1, pauseMs));
}

/// Whether the socket at `path` is left over from a program that is gone: the only case in which we
/// may replace it. A new socket is non-blocking, so it does not wait for a program that is alive
/// but too busy to accept.
bool isStale(const std::string& path) {
  const auto probe = UnixSocket::create();
  if (!probe) return false;
  const auto failure = probe->connectTo(path, std::chrono::milliseconds(0));
  return failure && failure->error == ECONNREFUSED;
}

}  // namespace

UnixListener::UnixListener(std::string path, int backlog) : socketPath(std::move(path)) {
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

  stopping = makePipe();
  listener = Descriptor(::socket(AF_UNIX, SOCK_STREAM, 0));
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
                                     pollfd{stopping.readEnd.number(), POLLIN, 0}};
    if (::poll(entries.data(), entries.size(), -1) < 0) continue;
    if (entries[1].revents != 0) return std::nullopt;
    Descriptor connection(::accept(listener.number(), nullptr, nullptr));
    if (connection.isOpen()) return connection;
    if (errno == EMFILE || errno == ENFILE) waitForDescriptors(stopping.readEnd);
  }
}

void UnixListener::stop() const {
  static_cast<void>(!::write(stopping.writeEnd.number(), "", 1));
}

}  // namespace quillmere
