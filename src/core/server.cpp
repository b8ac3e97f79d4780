#include "core/server.hpp"

#include <memory>
#include <new>
#include <optional>
#include <string_view>
#include <utility>

#include "core/dispatch.hpp"
#include "core/message.hpp"
#include "core/routing.hpp"
#include "platform/memory.hpp"
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
    refillReserve();
    try {
      auto payload = readNextPayload(reader, server.state);
      if (!payload || !processPayload(std::move(*payload), server)) return;
    } catch (const std::bad_alloc&) {
      // Part of a message was lost, and perhaps a request, which nobody could be told.
      server.output.endAfterFrame();
    } catch (...) {
      answerWithFailure(std::nullopt, server.output);
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
  } catch (const MCPError&) {
    answerWithFailure(id, server.output);
    return true;
  } catch (const std::bad_alloc&) {
    if (!id) throw;
    answerWithFailure(id, server.output);
    return true;
  } catch (...) {
    // Without an id this is text that is no JSON, such as a blank line: it gets no answer, and the
    // next message is read.
    if (id) answerWithFailure(id, server.output);
    return true;
  }
  return !server.state.isShutdownRequested();
}

}  // namespace quillmere
