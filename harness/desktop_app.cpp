#include "harness/desktop_app.hpp"

#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <utility>

#include "control/control_frame.hpp"
#include "harness/patience.hpp"

namespace quillmere {

namespace {

bool readExact(int descriptor, char* to, std::size_t byteCount) {
  return ::recv(descriptor, to, byteCount, MSG_WAITALL) == static_cast<ssize_t>(byteCount);
}

}  // namespace

std::shared_ptr<const JsonDocument> AppConnection::receive() const {
  const Waiting waiting("a control request");
  std::string bytes(controlPrefixBytes, '\0');
  if (!readExact(number(), bytes.data(), bytes.size())) return nullptr;
  bytes.resize(controlBodyLength(bytes));
  return readExact(number(), bytes.data(), bytes.size()) ? parseJson(bytes) : nullptr;
}

bool AppConnection::send(std::string_view bytes) const {
  const Waiting waiting("the server to read its answer");
  return ::send(number(), bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
         static_cast<ssize_t>(bytes.size());
}

bool AppConnection::answer(const JsonText& payload) const {
  return send(controlFrame(payload.str()));
}

std::size_t AppConnection::waitUntilClosed() const {
  const Waiting waiting("the server to close a connection");
  std::array<char, 4096> bytes{};
  std::size_t all = 0;
  for (ssize_t count = 0; (count = ::recv(number(), bytes.data(), bytes.size(), 0)) > 0;) {
    all += static_cast<std::size_t>(count);
  }
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
    const Waiting waiting("what a test does with a connection");
    handling.thread.join();
  }
}

AppConnection DesktopApp::accept() const {
  const Waiting waiting("a connection to the app");
  return AppConnection(std::move(*listener.accept()));
}

std::optional<AppConnection> DesktopApp::acceptUnless(int descriptor) const {
  const Waiting waiting("a connection to the app");
  std::array<pollfd, 2> entries = {pollfd{listener.number(), POLLIN, 0},
                                   pollfd{descriptor, POLLIN, 0}};
  static_cast<void>(::poll(entries.data(), entries.size(), -1));
  if (entries[0].revents == 0) return std::nullopt;
  return accept();
}

void DesktopApp::acceptAll() {
  while (auto connection = listener.accept()) {
    Handling& handling =
        handlings.emplace_back(Handling{AppConnection(std::move(*connection)), {}});
    handling.thread = std::thread([this, &handling] {
      handler(handling.connection);
      handling.connection.close();
    });
  }
}

}  // namespace quillmere
