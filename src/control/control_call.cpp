#include "control/control_call.hpp"

#include <algorithm>
#include <memory>
#include <string>
#include <utility>

#include "control/control_frame.hpp"
#include "control/socket_connection.hpp"
#include "platform/allocator.hpp"
#include "platform/json_parser.hpp"
#include "platform/json_writer.hpp"
#include "platform/uuid.hpp"
#include "shared/mcp_error.hpp"
#include "tools/argument_guards.hpp"

namespace quillmere {

namespace {

/// From this size of an answer on, the memory that carries it is worth keeping, and giving back.
constexpr std::size_t largeAnswerBytes = 1'048'576;

void stopIfCancelled(const InFlightRequest* inFlight) {
  if (inFlight != nullptr && inFlight->isCancelled()) throw errors::cancelled();
}

/// A connection for the length of one call, which cancelling the call breaks.
class CallConnection {
 public:
  explicit CallConnection(InFlightRequest* inFlightRequest) : inFlight(inFlightRequest) {
    stopIfCancelled(inFlight);
    socket = std::make_shared<const UnixSocket>(connectAppControlSocket());
    if (inFlight != nullptr && !inFlight->attach(socket)) throw errors::cancelled();
  }
  CallConnection(const CallConnection&) = delete;
  CallConnection& operator=(const CallConnection&) = delete;
  ~CallConnection() {
    if (inFlight != nullptr) inFlight->detach();
  }

  void sendAll(std::string_view data) const {
    while (!data.empty()) {
      const std::size_t sent = socket->send(data);
      if (sent == 0) throw errors::controlWriteFailed();
      data.remove_prefix(sent);
    }
  }

  /// Takes as much memory as comes, not as much as was announced, and no more at once than stays in
  /// the processor's cache between its being filled with zeros and with what comes.
  std::string readText(std::size_t byteCount) const {
    constexpr std::size_t blockBytes = 65'536;
    std::string text;
    text.reserve(byteCount);
    while (text.size() < byteCount) {
      const std::size_t at = text.size();
      text.resize(std::min(byteCount, at + blockBytes));
      readExact(&text[at], text.size() - at);
    }
    return text;
  }

  void readExact(char* to, std::size_t byteCount) const {
    while (byteCount > 0) {
      const std::size_t received = socket->receive(to, byteCount);
      if (received == 0) throw errors::controlConnectionClosed();
      to += received;
      byteCount -= received;
    }
  }

 private:
  InFlightRequest* const inFlight;
  std::shared_ptr<const UnixSocket> socket;
};

}  // namespace

JsonObject controlRequest(std::string_view command, const JsonObject& arguments) {
  JsonObject request{{"id", randomUuid()}, {"command", command}};
  for (const auto& [key, value] : arguments) {
    if (isControlField(key) && !value.isNull()) request.set(key, value);
  }
  // The one command with an argument called like the request's own key: it travels under another
  // name.
  if (command == "adbCommand") {
    if (const JsonValue* adbCommand = arguments.find("command")) {
      request.set("adbCommand", *adbCommand);
    }
  }
  return request;
}

JsonObject callAppControl(std::string_view command, const JsonObject& arguments,
                          InFlightRequest* inFlight) {
  checkStringLimits(arguments);
  const std::string body = compactJson(controlRequest(command, arguments));
  if (body.size() > maxControlRequestBytes) throw errors::requestTooLarge();

  const CallConnection connection(inFlight);
  connection.sendAll(controlFrame(body));

  ControlPrefix prefix{};
  connection.readExact(prefix.data(), prefix.size());
  stopIfCancelled(inFlight);
  const std::size_t length = controlBodyLength(prefix);
  if (length == 0 || length > maxControlResponseBytes) throw errors::invalidControlFrame();

  if (length >= largeAnswerBytes) noteLargeWork();
  std::string answer = connection.readText(length);
  stopIfCancelled(inFlight);

  JsonValue payload = parseJsonInPlace(std::move(answer));
  if (JsonObject* object = payload.asObject()) return std::move(*object);
  throw errors::invalidControlPayload();
}

}  // namespace quillmere
