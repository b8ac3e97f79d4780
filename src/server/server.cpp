// The main thread reads one message after the other and responds at once to what it can. Requests
// that wait for the desktop app go to workers, which write their own responses, in any order. So we
// can read a cancellation while the call that it cancels is running.
#include "server/server.hpp"

#include <memory>
#include <new>
#include <optional>
#include <string_view>
#include <utility>

#include "mcp/method_table.hpp"
#include "protocol/mcp_error.hpp"
#include "protocol/message.hpp"

namespace quillmere {

namespace {

constexpr std::string_view notificationPrefix = "notifications/";

/// Writes an error response for the failure that is being handled, with this id, or with null if
/// there is none. Call only inside a `catch` block, from any thread.
void writeFailure(const std::optional<JsonValue>& id, MessageWriter& output) {
  try {
    output.writeMessage(makeErrorResponse(id, currentFailure()));
  } catch (...) {
    // We could not write the first failure: there was no memory for it, or its text is not UTF-8.
    // That is a failure too, and it has a short text.
    output.writeMessage(makeErrorResponse(id, currentFailure()));
  }
}

/// A worker's whole task. A request that was cancelled in time gets no response.
void carryOut(InFlightRequest& request, const Method& method, Server& server) {
  try {
    auto result = handleRequest(request.message->object(), &method,
                                {server.context, request.requestID, &request});
    // `callAppControl` has checked this, but the client may have cancelled since, and a cancelled
    // request must not get a response (MCP).
    if (!result || request.isCancelled()) return;
    server.output.writeMessage(makeResultResponse(request.requestID, std::move(*result)));
  } catch (...) {
    if (!request.isCancelled()) writeFailure(request.requestID, server.output);
  }
}

/// Hands `message`, a request with this id, to a worker that carries it out and responds to it, and
/// returns at once. The request can be cancelled by its id until its response is out. Throws
/// `MCPError` -32603 when no thread is available; then no record of the request remains.
void dispatchRequest(std::shared_ptr<const JsonDocument> message, JsonValue id,
                     const Method& method, Server& server) {
  const auto request = std::make_shared<InFlightRequest>(std::move(message), id);
  InFlightRequests& inFlightRequests = server.context.inFlightRequests;
  // Before the worker starts, because the next message may cancel the request.
  inFlightRequests.add(request);
  auto task = [request, &method, &server, &inFlightRequests] {
    carryOut(*request, method, server);
    inFlightRequests.remove(*request);
  };
  if (server.workers.submit(std::move(task))) return;
  inFlightRequests.remove(*request);
  throw errors::noThread();
}

}  // namespace

void serve(int descriptor, Server& server) {
  StdinReader reader(descriptor);
  for (;;) {
    try {
      auto message = readNextPayload(reader, server.context.state);
      if (!message || !processPayload(std::move(*message), server)) return;
    } catch (const std::bad_alloc&) {
      // Part of a message is lost. It may have been a request, but without its id we can't tell the
      // client that it failed.
      server.output.endAfterFrame();
    } catch (...) {
      writeFailure(std::nullopt, server.output);
    }
  }
}

bool processPayload(Bytes bytes, Server& server) {
  // The id points into the message, which must stay until the response is out.
  std::shared_ptr<const JsonDocument> message;
  std::optional<JsonValue> id;
  try {
    message = parseMessage(std::move(bytes));
    id = requestIDOf(message->object());
    const auto name = message->object().findString("method");
    if (name && !id && !name->view().starts_with(notificationPrefix)) {
      throw errors::methodRequiresId(name->view());
    }
    const Method* method = name ? findMethod(name->view(), server.context.dialect) : nullptr;
    if (id && method != nullptr && method->runsOn == Method::RunsOn::worker) {
      dispatchRequest(message, *id, *method, server);
      return true;
    }
    auto result = handleRequest(message->object(), method, {server.context, id});
    if (id && result) server.output.writeMessage(makeResultResponse(*id, std::move(*result)));
  } catch (const MCPError&) {
    writeFailure(id, server.output);
    return true;
  } catch (const std::bad_alloc&) {
    if (!id) throw;
    writeFailure(id, server.output);
    return true;
  } catch (...) {
    // Without an id this is text that is not JSON, such as a blank line or a line of a log. We do
    // not respond: a client could take an error with a null id for the response to something else.
    if (id) writeFailure(id, server.output);
    return true;
  }
  return !server.context.state.isShutdownRequested();
}

}  // namespace quillmere
