#include "core/dispatch.hpp"

#include <exception>
#include <memory>
#include <optional>
#include <utility>

#include "core/message.hpp"
#include "core/routing.hpp"
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

void answer(InFlightRequest& request, ServerContext& server) {
  try {
    auto result = handleRequest(request.message->object(), server, &request);
    if (!result || request.isCancelled()) return;
    server.output.writeMessage(makeResultResponse(request.requestID, std::move(*result)));
  } catch (...) {
    reportFailure(request, server);
  }
}

}  // namespace

void dispatchRequest(std::shared_ptr<const JsonDocument> message, JsonValue id,
                     ServerContext& server) {
  const auto request = std::make_shared<InFlightRequest>(std::move(message), id);
  server.inFlightRequests.add(request);
  try {
    auto task = [request, &server] {
      answer(*request, server);
      server.inFlightRequests.remove(*request);
    };
    if (!server.workers.submit(std::move(task))) throw errors::noThread();
  } catch (...) {
    server.inFlightRequests.remove(*request);
    throw;
  }
}

}  // namespace quillmere
