// The handshake: which protocol version is spoken, and what works before it (MCP, "Lifecycle").
#pragma once

#include <optional>
#include <string_view>

#include "json/value.hpp"
#include "json/writer.hpp"
#include "shared/server_state.hpp"

namespace quillmere {

/// The method `initialize`: negotiates, remembers the outcome in `state` and returns the result.
/// May be called any number of times; the last success counts. Main thread only. Throws `MCPError`
/// -32602, with `state` as it was.
[[nodiscard]] JsonText initialize(const JsonObject& params, ServerState& state);

/// The version to speak with a client that asks for `requested`, or for none: the same if it is
/// supported, else the newest one that is not greater as a text, else the oldest. Pure. Throws
/// `MCPError` -32602 when `requested` is no string.
[[nodiscard]] std::string_view negotiatedProtocolVersion(const std::optional<JsonValue>& requested);

/// Throws `MCPError` -32002 for `method` unless `initialize` has succeeded. From any thread.
void requireInitialized(const ServerState& state, std::string_view method);

}  // namespace quillmere
