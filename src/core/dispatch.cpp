#include "core/dispatch.hpp"

#include <memory>
#include <utility>

#include "core/message.hpp"
#include "core/routing.hpp"
#include "shared/mcp_error.hpp"

namespace quillmere {

namespace {

void answer(InFlightRequest& request, ServerContext& server) {
  try {
    auto result = handleRequest(request.message->object(), server, &request);
    if (!result || request.isCancelled()) return;
    server.output.writeMessage(makeResultResponse(request.requestID, std::move(*result)));
  } catch (...) {
    if (!request.isCancelled()) answerWithFailure(request.requestID, server.output);
  }
}

}  // namespace

void dispatchRequest(std::shared_ptr<const JsonDocument> message, JsonValue id,
                     ServerContext& server) {
  const auto request = std::make_shared<InFlightRequest>(std::move(message), id);
  server.inFlightRequests.add(request);
  auto task = [request, &server] {
    answer(*request, server);
    server.inFlightRequests.remove(*request);
  };
  if (server.workers.submit(std::move(task))) return;
  server.inFlightRequests.remove(*request);
  throw errors::noThread();
}

}  // namespace quillmere
