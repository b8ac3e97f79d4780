// Requests that wait for the desktop app, on threads of their own.
#pragma once

#include <memory>

#include "core/server_context.hpp"
#include "json/document.hpp"

namespace quillmere {

/// Hands `message`, a request with this id, to a worker that carries it out and answers it, and
/// returns at once. From then until its answer is out the request can be cancelled by its id; a
/// request that was cancelled in time gets no answer. Main thread only. Throws `MCPError` -32603
/// when no thread is available for it, and `std::bad_alloc`, with nothing left behind.
void dispatchRequest(std::shared_ptr<const JsonDocument> message, JsonValue id,
                     ServerContext& server);

}  // namespace quillmere
