// One call is one connection: a frame out, a frame back, and it is closed. So nothing that is left
// of one call can be taken for another's, and cancelling a call means breaking its connection.
//
// What may leave the process is decided here once more, whatever a tool's schema allows: only known
// fields, and none that is too long.
#include "control/control_call.hpp"

#include <algorithm>
#include <iterator>
#include <memory>
#include <optional>
#include <string_view>

#include "control/app_socket.hpp"
#include "control/control_frame.hpp"
#include "platform/buffer.hpp"
#include "platform/text.hpp"
#include "platform/uuid.hpp"
#include "protocol/mcp_error.hpp"

namespace quillmere {

namespace {

struct StringLimit {
  std::string_view name;
  std::size_t characters;
};

constexpr StringLimit stringLimits[] = {
    {"deviceSerial", 512},
    {"sessionId", 512},
    {"key", 512},
    {"packageName", 512},
    {"expectedPackageName", 512},
    {"stateSignature", 128},
    {"taskId", 512},
    {"direction", 16},
    {"text", 16384},
    {"command", 4096},
    {"adbCommand", 4096},
    {"reason", 2048},
    {"userAcknowledgementText", 512},
    {"taskName", 160},
};
static_assert(std::size(stringLimits) == 14);

constexpr std::string_view controlFields[] = {
    "deviceSerial",
    "sessionId",
    "includeOffline",
    "includeSystem",
    "includeImage",
    "includeNonInteractive",
    "includeFullState",
    "x",
    "y",
    "startX",
    "startY",
    "endX",
    "endY",
    "durationMs",
    "key",
    "text",
    "packageName",
    "userId",
    "adbCommand",
    "timeoutMs",
    "stableMs",
    "pollIntervalMs",
    "maximumNodes",
    "expectedPackageName",
    "nodeId",
    "stateSignature",
    "direction",
    "reason",
    "userAcknowledgementText",
    "taskId",
    "taskName",
};
static_assert(std::size(controlFields) == 31);

void stopIfCancelled(const InFlightRequest& inFlight) {
  if (inFlight.isCancelled()) throw errors::cancelled();
}

/// A connection for the length of one call, which cancelling the call breaks.
class CallConnection {
 public:
  explicit CallConnection(InFlightRequest& inFlightRequest) : inFlight(inFlightRequest) {
    // Checked twice. Before the connect, so that a cancelled call does not wait for it; and by
    // `attach` after it, since a cancellation in between has found no connection to break.
    stopIfCancelled(inFlight);
    socket = std::make_shared<const UnixSocket>(connectAppControlSocket());
    if (!inFlight.attach(socket)) throw errors::cancelled();
  }
  CallConnection(const CallConnection&) = delete;
  CallConnection& operator=(const CallConnection&) = delete;
  ~CallConnection() { inFlight.detach(); }

  void sendAll(std::string_view data) const {
    while (!data.empty()) {
      const std::size_t sent = socket->send(data);
      if (sent == 0) throw errors::controlWriteFailed();
      data.remove_prefix(sent);
    }
  }

  /// The body of the one frame that comes back.
  Bytes receiveResponse() const {
    // Most responses are smaller than this, and come with their prefix in one system call. We copy
    // only so much of a larger one.
    constexpr std::size_t smallResponse = 16'384;
    Bytes received;
    receive(received, controlPrefixBytes, smallResponse);
    // What came just before the connection was broken is not wanted any more.
    stopIfCancelled(inFlight);
    const std::size_t length = controlBodyLength(viewOf(received));
    if (length == 0 || length > maxControlResponseBytes) throw errors::invalidControlFrame();

    // Now that the length is known there is room for the whole body at once, and it is received
    // into the place from where it goes out again.
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

  InFlightRequest& inFlight;
  std::shared_ptr<const UnixSocket> socket;
};

}  // namespace

void checkStringLimits(const JsonObject& arguments) {
  for (const auto& [name, characters] : stringLimits) {
    const auto text = arguments.findString(name);
    if (text && text->hasMoreCharactersThan(characters)) throw errors::tooLong(name);
  }
}

bool isControlField(std::string_view name) {
  return contains(controlFields, name);
}

JsonText controlRequest(std::string_view command, const JsonObject& arguments) {
  JsonText request{{"id", randomUuid()}, {"command", command}};
  // One tool has an argument with the name of one of the request's own keys. It travels under
  // another name, in place of an argument that already has that one.
  constexpr std::string_view adbCommand = "adbCommand";
  const auto renamed = command == adbCommand ? arguments.find("command") : std::nullopt;
  for (const JsonMember& argument : arguments.distinctMembers()) {
    const JsonString key = argument.key();
    if (renamed && key == adbCommand) continue;
    if (!isControlField(key.view()) || argument.value().isNull()) continue;
    request.set(key.view(), argument.value());
  }
  if (renamed) request.set(adbCommand, *renamed);
  return request;
}

std::shared_ptr<const JsonDocument> callAppControl(std::string_view command,
                                                   const JsonObject& arguments,
                                                   InFlightRequest& inFlight) {
  checkStringLimits(arguments);
  const JsonText request = controlRequest(command, arguments);
  if (request.size() > maxControlRequestBytes) throw errors::requestTooLarge();

  const CallConnection connection(inFlight);
  connection.sendAll(controlFrame(request.str()));
  auto response = parseJson(connection.receiveResponse());
  if (!response->root().asObject()) throw errors::invalidControlPayload();
  return response;
}

}  // namespace quillmere
