#include "core/dispatch.hpp"

#include <exception>
#include <memory>
#include <optional>
#include <utility>

#include "core/message.hpp"
#include "core/routing.hpp"
#include "platform/allocator.hpp"
#include "shared/mcp_error.hpp"

namespace quillmere {

namespace {

/// Answers with the failure being handled, unless the request was cancelled. A failure to do so is
/// dropped: there is nobody left to tell.
void reportFailure(const InFlightRequest& request, ServerContext& server) {
  if (request.isCancelled()) return;
  try {
    server.output.writeMessage(makeErrorResponse(request.requestID, currentFailure()));
  } catch (...) {
    return;
  }
}

void answer(JsonObject message, InFlightRequest& request, ServerContext& server) {
  try {
    auto result = handleRequest(std::move(message), server, &request);
    if (!result || request.isCancelled()) return;
    server.output.writeMessage(makeResultResponse(request.requestID, std::move(*result)));
  } catch (...) {
    reportFailure(request, server);
  }
}

}  // namespace

void dispatchRequest(JsonObject message, JsonValue id, ServerContext& server) {
  const auto request = std::make_shared<InFlightRequest>(std::move(id));
  server.inFlightRequests.add(request);
  try {
    auto task = [request, &server, message = std::move(message)]() mutable {
      answer(std::move(message), *request, server);
      server.inFlightRequests.remove(*request);
      returnUnneededMemory();
    };
    if (!server.workers.submit(std::move(task))) throw errors::noThread();
  } catch (...) {
    server.inFlightRequests.remove(*request);
    throw;
  }
}

}  // namespace quillmere
