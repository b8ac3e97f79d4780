// JSON-RPC messages: what comes in, and the shapes of what goes out (JSON-RPC 2.0, sections 4 and
// 5).
#pragma once

#include <optional>
#include <string_view>

#include "platform/json_value.hpp"
#include "shared/mcp_error.hpp"

namespace quillmere {

/// The one object that a payload holds. Pure. Throws `JsonError` when it is no JSON, and `MCPError`
/// -32600 for an array: batches are not taken.
[[nodiscard]] JsonObject parseMessage(std::string_view payload);

/// The id of a message: a string or a number, or nothing when it is missing or null. Pure.
/// Throws `MCPError` -32600 for anything else.
[[nodiscard]] std::optional<JsonValue> requestIDOf(const JsonObject& message);

/// The response to the request with this id. Pure; cannot fail.
[[nodiscard]] JsonObject makeResultResponse(const JsonValue& id, JsonObject result);

/// The one shape of all errors; without an id, its `id` is null. Pure; cannot fail.
[[nodiscard]] JsonObject makeErrorResponse(const std::optional<JsonValue>& id,
                                           const MCPError& error);

}  // namespace quillmere
