#include "peers/app_connection.hpp"

#include <sys/socket.h>
#include <sys/time.h>

#include <array>
#include <cerrno>
#include <utility>

#include "control/control_frame.hpp"
#include "peers/patience.hpp"

namespace quillmere {

AppConnection::AppConnection(Descriptor connection) : descriptor(std::move(connection)) {
  timeval most{};
  most.tv_sec = patience().count();
  for (const int direction : {SO_RCVTIMEO, SO_SNDTIMEO}) {
    ::setsockopt(number(), SOL_SOCKET, direction, &most, sizeof most);
  }
}

std::size_t AppConnection::receiveSome(char* to, std::size_t most, const char* what) const {
  const ssize_t count = ::recv(number(), to, most, 0);
  if (count < 0 && errno == EAGAIN) throw TimedOut(what);
  return count > 0 ? static_cast<std::size_t>(count) : 0;
}

std::optional<std::string> AppConnection::receiveBytes(std::size_t size) const {
  std::string bytes(size, '\0');
  for (std::size_t at = 0; at < size;) {
    const std::size_t count = receiveSome(&bytes[at], size - at, "a control request");
    if (count == 0) return std::nullopt;
    at += count;
  }
  return bytes;
}

std::optional<std::string> AppConnection::receiveText() const {
  const auto prefix = receiveBytes(controlPrefixBytes);
  return prefix ? receiveBytes(controlBodyLength(*prefix)) : std::nullopt;
}

std::shared_ptr<const JsonDocument> AppConnection::receive() const {
  const auto text = receiveText();
  return text ? parseJson(*text) : nullptr;
}

bool AppConnection::send(std::string_view bytes) const {
  // Blocks until everything is sent, or times out.
  const ssize_t count = ::send(number(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
  if (count < 0 && errno == EAGAIN) throw TimedOut("the server to read its app response");
  return count == static_cast<ssize_t>(bytes.size());
}

bool AppConnection::answer(const JsonText& payload) const {
  return send(controlFrame(payload.str()));
}

std::size_t AppConnection::waitUntilClosed() const {
  std::array<char, 4096> bytes{};
  std::size_t all = 0;
  while (const std::size_t count =
             receiveSome(bytes.data(), bytes.size(), "the server to close a connection")) {
    all += count;
  }
  return all;
}

void AppConnection::close() const {
  // The number stays taken, since another thread may be about to end this connection too.
  ::shutdown(number(), SHUT_RDWR);
}

}  // namespace quillmere
