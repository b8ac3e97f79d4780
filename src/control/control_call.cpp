// Each call has its own connection: a frame out, a frame back, close. So no call can pick up
// leftovers of another one, and cancelling a call means breaking its connection.
//
// This file checks again what may leave the process, whatever a tool's schema allows: only known
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

/// A connection that lives for one call. Cancelling the call breaks it.
class CallConnection {
 public:
  explicit CallConnection(InFlightRequest& inFlightRequest) : inFlight(inFlightRequest) {
    // We check twice: before the connect, so that a cancelled call does not wait for it, and in
    // `attach` after it, since a cancellation in between found no connection to break.
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
    // Most responses are smaller than this and arrive with their prefix in one system call. Of a
    // larger one we copy only this much.
    constexpr std::size_t smallResponse = 16'384;
    Bytes received;
    receive(received, controlPrefixBytes, smallResponse);
    // The client no longer wants what came just before the connection was broken.
    stopIfCancelled(inFlight);
    const std::size_t length = controlBodyLength(viewOf(received));
    if (length == 0 || length > maxControlResponseBytes) throw errors::invalidControlFrame();

    // Now we know the length, so we make room for the whole body at once and receive it into the
    // place from which it goes out again.
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
  // One tool has an argument named like one of the request's own keys. It travels under another
  // name, and replaces an argument that already has that name.
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
