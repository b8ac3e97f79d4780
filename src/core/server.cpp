#include "core/server.hpp"

#include <new>
#include <optional>
#include <string>
#include <utility>

#include "core/dispatch.hpp"
#include "core/message.hpp"
#include "core/routing.hpp"
#include "platform/text.hpp"
#include "shared/mcp_error.hpp"

namespace quillmere {

namespace {

constexpr std::string_view notificationPrefix = "notifications/";

void answerHere(JsonObject message, const std::optional<JsonValue>& id, ServerContext& server) {
  auto result = handleRequest(std::move(message), server, nullptr);
  if (id && result) server.output.writeMessage(makeResultResponse(*id, std::move(*result)));
}

}  // namespace

void serve(int descriptor, ServerContext& server) {
  StdinReader reader(descriptor);
  for (;;) {
    try {
      const auto payload = readNextPayload(reader, server.state);
      if (!payload || !processPayload(*payload, server)) return;
    } catch (...) {
      try {
        server.output.writeMessage(makeErrorResponse(std::nullopt, currentFailure()));
      } catch (...) {
        // A failure to report a failure is dropped; the next message is served all the same.
        continue;
      }
    }
  }
}

bool processPayload(std::string_view payload, ServerContext& server) {
  if (!isUtf8(payload)) {
    server.output.writeMessage(makeErrorResponse(std::nullopt, errors::notUtf8()));
    return true;
  }
  if (trimmed(payload).empty()) return true;

  std::optional<JsonValue> id;
  try {
    JsonObject message = parseMessage(payload);
    id = requestIDOf(message);
    const std::string* method = message.findString("method");
    if (method != nullptr && !id && !method->starts_with(notificationPrefix)) {
      throw errors::methodRequiresId(*method);
    }
    if (method != nullptr && id && runsOnWorker(*method)) {
      dispatchRequest(std::move(message), *id, server);
      return true;
    }
    answerHere(std::move(message), id, server);
  } catch (const MCPError& error) {
    server.output.writeMessage(makeErrorResponse(id, error));
    return true;
  } catch (const std::bad_alloc&) {
    // What can't be parsed for want of memory may be a request: the client is told, with or without
    // its id.
    server.output.writeMessage(makeErrorResponse(id, errors::outOfMemory()));
    return true;
  } catch (const std::exception& failure) {
    // Without an id this is text that is no JSON: it gets no answer, and the next message is read.
    if (id) server.output.writeMessage(makeErrorResponse(id, errors::internal(failure.what())));
    return true;
  }
  return !server.state.isShutdownRequested();
}

}  // namespace quillmere
