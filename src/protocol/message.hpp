// JSON-RPC messages: what comes in, and the shapes of what goes out (JSON-RPC 2.0, sections 4 and
// 5).
#pragma once

#include <memory>
#include <optional>

#include "json/document.hpp"
#include "json/writer.hpp"
#include "platform/buffer.hpp"
#include "protocol/mcp_error.hpp"

namespace quillmere {

/// One message as a document with an object at the top. Pure. Throws `MCPError` -32700 for bytes
/// that are not UTF-8 and -32600 for an array, since we do not support batches, and `JsonError` for
/// any other text that is not JSON.
[[nodiscard]] std::shared_ptr<const JsonDocument> parseMessage(Bytes bytes);

/// The id of a message: a string or a number, or nothing when it is missing or null. Pure.
/// Throws `MCPError` -32600 for anything else.
[[nodiscard]] std::optional<JsonValue> requestIDOf(const JsonObject& message);

/// The response to the request with this id. Pure; cannot fail.
[[nodiscard]] JsonText makeResultResponse(const JsonValue& id, JsonText result);

/// The error response to the request with this id, or with null for one. Pure; cannot fail.
[[nodiscard]] JsonText makeErrorResponse(const std::optional<JsonValue>& id, const MCPError& error);

}  // namespace quillmere
