#include "control/control_call.hpp"

#include <memory>
#include <optional>
#include <string_view>

#include "control/control_frame.hpp"
#include "control/socket_connection.hpp"
#include "platform/buffer.hpp"
#include "platform/uuid.hpp"
#include "shared/mcp_error.hpp"
#include "tools/argument_guards.hpp"

namespace quillmere {

namespace {

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

  /// The body of the one frame that comes back.
  Bytes receiveAnswer() const {
    // A small answer comes whole with its prefix.
    constexpr std::size_t smallAnswer = 16'384;
    Bytes received;
    receive(received, controlPrefixBytes, smallAnswer);
    stopIfCancelled(inFlight);
    const std::size_t length = controlBodyLength(viewOf(received));
    if (length == 0 || length > maxControlResponseBytes) throw errors::invalidControlFrame();

    Bytes body = bytesOf(viewOf(received).substr(controlPrefixBytes, length));
    receive(body, length, length);
    stopIfCancelled(inFlight);
    return body;
  }

 private:
  /// Receives until `bytes` holds at least `least`, at most `most` in all.
  void receive(Bytes& bytes, std::size_t least, std::size_t most) const {
    while (bytes.size() < least) {
      const std::size_t left = most - bytes.size();
      const std::size_t count = socket->receive(bytes.room(left), left);
      if (count == 0) throw errors::controlConnectionClosed();
      bytes.grow(count);
    }
  }

  InFlightRequest* const inFlight;
  std::shared_ptr<const UnixSocket> socket;
};

}  // namespace

JsonText controlRequest(std::string_view command, const JsonObject& arguments) {
  // The one command with an argument called like the request's own key: it travels under another
  // name, and takes the place of an argument of that name.
  const auto adbCommand = command == "adbCommand" ? arguments.find("command") : std::nullopt;
  JsonText request{{"id", randomUuid()}, {"command", command}};
  for (const JsonMember& argument : arguments.distinctMembers()) {
    const JsonString key = argument.key();
    const bool isReplaced = adbCommand && key == "adbCommand";
    if (isReplaced || !isControlField(key.view()) || argument.value().isNull()) continue;
    request.set(key.view(), argument.value());
  }
  if (adbCommand) request.set("adbCommand", *adbCommand);
  return request;
}

std::shared_ptr<const JsonDocument> callAppControl(std::string_view command,
                                                   const JsonObject& arguments,
                                                   InFlightRequest* inFlight) {
  checkStringLimits(arguments);
  const JsonText request = controlRequest(command, arguments);
  if (request.size() > maxControlRequestBytes) throw errors::requestTooLarge();

  const CallConnection connection(inFlight);
  connection.sendAll(controlFrame(request.str()));
  auto answer = parseJson(connection.receiveAnswer());
  if (!answer->root().asObject()) throw errors::invalidControlPayload();
  return answer;
}

}  // namespace quillmere
