// The main thread reads one message after the other and answers at once what it can. Requests that
// wait for the desktop app go to workers, which answer by themselves, in whatever order they end.
// So a cancellation is read while the call that it cancels is under way.
#include "server/server.hpp"

#include <memory>
#include <new>
#include <optional>
#include <string_view>
#include <utility>

#include "platform/memory.hpp"
#include "protocol/mcp_error.hpp"
#include "protocol/message.hpp"
#include "server/method_table.hpp"

namespace quillmere {

namespace {

constexpr std::string_view notificationPrefix = "notifications/";

/// A worker's whole task. A request that was cancelled in time gets no answer.
void answer(InFlightRequest& request, const Method& method, ServerContext& server) {
  try {
    auto result = handleRequest(request, method, server);
    // `callAppControl` has checked this too, but the client may have cancelled since: MCP wants no
    // answer to what was cancelled.
    if (request.isCancelled()) return;
    server.output.writeMessage(makeResultResponse(request.requestID, std::move(result)));
  } catch (...) {
    if (!request.isCancelled()) answerWithFailure(request.requestID, server.output);
  }
}

/// Hands `message`, a request with this id, to a worker that carries it out and answers it, and
/// returns at once. From then until its answer is out the request can be cancelled by its id.
/// Throws `MCPError` -32603 when no thread is available for it, and `std::bad_alloc`, and then
/// leaves no record of the request.
void dispatchRequest(std::shared_ptr<const JsonDocument> message, JsonValue id,
                     const Method& method, ServerContext& server) {
  const auto request = std::make_shared<InFlightRequest>(std::move(message), id);
  // Before the worker starts, because the next message may cancel the request.
  server.inFlightRequests.add(request);
  auto task = [request, &method, &server] {
    answer(*request, method, server);
    server.inFlightRequests.remove(*request);
  };
  if (server.workers.submit(std::move(task))) return;
  server.inFlightRequests.remove(*request);
  throw errors::noThread();
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
      // Part of a message was lost. If there was a request in it, its id is not known, and so the
      // client could not be told that it failed.
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
    const auto name = message->object().findString("method");
    if (name && !id && !name->view().starts_with(notificationPrefix)) {
      throw errors::methodRequiresId(name->view());
    }
    const Method* method = name ? findMethod(name->view(), server.form) : nullptr;
    if (id && method != nullptr && method->isForWorkers()) {
      dispatchRequest(message, *id, *method, server);
      return true;
    }
    auto result = handleRequest(message->object(), id, method, server);
    if (id && result) server.output.writeMessage(makeResultResponse(*id, std::move(*result)));
  } catch (const MCPError&) {
    answerWithFailure(id, server.output);
    return true;
  } catch (const std::bad_alloc&) {
    if (!id) throw;
    answerWithFailure(id, server.output);
    return true;
  } catch (...) {
    // Without an id this is text that is no JSON, such as a blank line or a log's. It gets no
    // answer: an error with a null id could be taken for the answer to something else.
    if (id) answerWithFailure(id, server.output);
    return true;
  }
  return !server.state.isShutdownRequested();
}

}  // namespace quillmere
