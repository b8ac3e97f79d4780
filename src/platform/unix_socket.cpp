// A socket starts as non-blocking and becomes blocking once it is connected. A blocking connect
// can't have a time limit; a blocking transfer can, and needs no second system call to wait.
#include "platform/unix_socket.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>

namespace quillmere {

std::optional<UnixSocket> UnixSocket::create() {
#ifdef __APPLE__
  // macOS can't set the flags in the same call. We start no other program that could inherit the
  // descriptor meanwhile.
  Descriptor socket(::socket(AF_UNIX, SOCK_STREAM, 0));
  if (!socket.isOpen()) return std::nullopt;
  ::fcntl(socket.number(), F_SETFD, FD_CLOEXEC);
  ::fcntl(socket.number(), F_SETFL, O_NONBLOCK);
  const int on = 1;
  ::setsockopt(socket.number(), SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on);
#else
  Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!socket.isOpen()) return std::nullopt;
#endif
  return UnixSocket(std::move(socket));
}

std::optional<UnixSocket::ConnectFailure> UnixSocket::connectTo(
    std::string_view path, std::chrono::milliseconds most) const {
  sockaddr_un address{};
  const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
  address.sun_family = AF_UNIX;
#ifdef __APPLE__
  address.sun_len = static_cast<unsigned char>(length);
#endif
  std::ranges::copy(path, address.sun_path);
  const auto* generic = reinterpret_cast<const sockaddr*>(&address);
  const bool isConnected = ::connect(descriptor.number(), generic, length) == 0;
  // Any other error is final, `EAGAIN` included: it means that the app's backlog is full.
  if (!isConnected && errno != EINPROGRESS) return ConnectFailure{.error = errno};
  if (!isConnected) {
    pollfd entry{.fd = descriptor.number(), .events = POLLOUT, .revents = 0};
    const int ready = ::poll(&entry, 1, static_cast<int>(most.count()));
    if (ready == 0) return ConnectFailure{.timedOut = true};
    const int error = ready < 0 ? errno : takePendingError();
    if (error != 0) return ConnectFailure{.error = error};
  }
  // The socket is ours, so there are no other flags to keep.
  ::fcntl(descriptor.number(), F_SETFL, 0);
  return std::nullopt;
}

int UnixSocket::takePendingError() const {
  int error = 0;
  socklen_t length = sizeof error;
  // The option holds the connect's outcome; `getsockopt` itself can fail too.
  const bool isRead = ::getsockopt(descriptor.number(), SOL_SOCKET, SO_ERROR, &error, &length) == 0;
  if (error == 0 && !isRead) error = errno;
  return error;
}

void UnixSocket::setTimeouts(std::chrono::seconds limit) const {
  timeval time{};
  time.tv_sec = limit.count();
  for (const int direction : {SO_RCVTIMEO, SO_SNDTIMEO}) {
    ::setsockopt(descriptor.number(), SOL_SOCKET, direction, &time, sizeof time);
  }
}

std::size_t UnixSocket::send(std::string_view data) const {
  const ssize_t count = ::send(descriptor.number(), data.data(), data.size(), 0);
  return count > 0 ? static_cast<std::size_t>(count) : 0;
}

std::size_t UnixSocket::receive(char* to, std::size_t atMost) const {
  const ssize_t count = ::recv(descriptor.number(), to, atMost, 0);
  return count > 0 ? static_cast<std::size_t>(count) : 0;
}

void UnixSocket::shutDown() const {
  ::shutdown(descriptor.number(), SHUT_RDWR);
}

}  // namespace quillmere
