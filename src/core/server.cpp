#include "core/server.hpp"

#include <memory>
#include <new>
#include <optional>
#include <string_view>
#include <utility>

#include "core/dispatch.hpp"
#include "core/message.hpp"
#include "core/routing.hpp"
#include "shared/mcp_error.hpp"

namespace quillmere {

namespace {

constexpr std::string_view notificationPrefix = "notifications/";

void answerHere(const JsonObject& message, const std::optional<JsonValue>& id,
                ServerContext& server) {
  auto result = handleRequest(message, server, nullptr);
  if (id && result) server.output.writeMessage(makeResultResponse(*id, std::move(*result)));
}

}  // namespace

void serve(int descriptor, ServerContext& server) {
  StdinReader reader(descriptor);
  for (;;) {
    try {
      auto payload = readNextPayload(reader, server.state);
      if (!payload || !processPayload(std::move(*payload), server)) return;
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

bool processPayload(Bytes payload, ServerContext& server) {
  // The id is a place in the message, which must stay until the answer is out.
  std::shared_ptr<const JsonDocument> message;
  std::optional<JsonValue> id;
  try {
    message = parseMessage(std::move(payload));
    id = requestIDOf(message->object());
    const auto method = message->object().findString("method");
    if (method && !id && !method->view().starts_with(notificationPrefix)) {
      throw errors::methodRequiresId(method->view());
    }
    if (method && id && runsOnWorker(method->view())) {
      dispatchRequest(message, *id, server);
      return true;
    }
    answerHere(message->object(), id, server);
  } catch (const MCPError& error) {
    server.output.writeMessage(makeErrorResponse(id, error));
    return true;
  } catch (const std::bad_alloc&) {
    // What can't be parsed for want of memory may be a request: the client is told, with or without
    // its id.
    server.output.writeMessage(makeErrorResponse(id, errors::outOfMemory()));
    return true;
  } catch (const std::exception& failure) {
    // Without an id this is text that is no JSON, such as a blank line: it gets no answer, and the
    // next message is read.
    if (id) server.output.writeMessage(makeErrorResponse(id, errors::internal(failure.what())));
    return true;
  }
  return !server.state.isShutdownRequested();
}

}  // namespace quillmere
