#include "support/desktop_app.hpp"

#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <utility>

#include "control/control_frame.hpp"
#include "platform/json_parser.hpp"
#include "platform/json_writer.hpp"

namespace quillmere {

namespace {

std::size_t readSome(int descriptor, char* to, std::size_t most) {
  for (;;) {
    const ssize_t count = ::recv(descriptor, to, most, 0);
    if (count >= 0 || errno != EINTR) return count > 0 ? static_cast<std::size_t>(count) : 0;
  }
}

bool readExact(int descriptor, char* to, std::size_t byteCount) {
  while (byteCount > 0) {
    const std::size_t count = readSome(descriptor, to, byteCount);
    if (count == 0) return false;
    to += count;
    byteCount -= count;
  }
  return true;
}

}  // namespace

std::optional<JsonObject> AppConnection::receive() const {
  ControlPrefix prefix{};
  if (!readExact(number(), prefix.data(), prefix.size())) return std::nullopt;
  std::string body(controlBodyLength(prefix), '\0');
  if (!readExact(number(), body.data(), body.size())) return std::nullopt;
  JsonValue value = parseJson(body);
  return std::move(*value.asObject());
}

bool AppConnection::send(std::string_view bytes) const {
  while (!bytes.empty()) {
    const ssize_t count = ::send(number(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

bool AppConnection::answer(const JsonObject& payload) const {
  return send(controlFrame(compactJson(payload)));
}

std::size_t AppConnection::waitUntilClosed() const {
  std::array<char, 4096> bytes{};
  std::size_t all = 0;
  while (const std::size_t count = readSome(number(), bytes.data(), bytes.size())) all += count;
  return all;
}

void AppConnection::close() const {
  // The number stays taken: another thread may be about to end this connection too.
  ::shutdown(number(), SHUT_RDWR);
}

DesktopApp::DesktopApp(std::string socketPath, Handler connectionHandler)
    : listener(std::move(socketPath)), handler(std::move(connectionHandler)) {
  if (handler) accepting = std::thread([this] { acceptAll(); });
}

DesktopApp::~DesktopApp() {
  listener.stop();
  if (accepting.joinable()) accepting.join();
  for (Handling& handling : handlings) {
    handling.connection.close();
    handling.thread.join();
  }
}

AppConnection DesktopApp::accept() const {
  return AppConnection(std::move(*listener.accept()));
}

void DesktopApp::acceptAll() {
  while (auto connection = listener.accept()) {
    ++handled;
    Handling& handling = handlings.emplace_back(AppConnection(std::move(*connection)));
    handling.thread = std::thread([this, &handling] {
      handler(handling.connection);
      handling.connection.close();
    });
  }
}

}  // namespace quillmere
