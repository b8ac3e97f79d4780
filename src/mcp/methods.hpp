// The functions that carry out the methods of MCP: handshake, tools, resources and prompts (MCP,
// "Lifecycle" and "Server Features").
#pragma once

#include <optional>
#include <string_view>

#include "json/value.hpp"
#include "json/writer.hpp"
#include "mcp/method_table.hpp"

namespace quillmere {

/// The method `initialize`: negotiates, remembers the outcome in the server's state and returns
/// `initializeResult`. May be called any number of times; the last success counts. Main thread
/// only. Throws `MCPError` -32602, with the state as it was.
[[nodiscard]] MethodResult initialize(const JsonObject& params, const RequestContext& context);

/// What the server says about itself, and the negotiated version. Pure; cannot fail.
[[nodiscard]] JsonText initializeResult(const ServerState& state, const Dialect& dialect);

/// The version to speak with a client that asks for `requested`: the same if it is supported, else
/// the newest one that is not greater as a text, else the oldest. The newest one if it asks for
/// none. Pure. Throws `MCPError` -32602 when `requested` is not a string.
[[nodiscard]] std::string_view negotiatedProtocolVersion(const std::optional<JsonValue>& requested);

/// Throws `MCPError` -32002 for `method` unless `initialize` has succeeded. Thread-safe.
void requireInitialized(const ServerState& state, std::string_view method);

/// The method `shutdown`: the read loop ends after the response to it. Main thread only.
[[nodiscard]] MethodResult shutDown(const JsonObject& params, const RequestContext& context);

/// The notification that the client no longer wants the result of a request. Ignored if it is wrong
/// or late. Main thread only.
[[nodiscard]] MethodResult cancelRequest(const JsonObject& params, const RequestContext& context);

/// Lists are complete: these methods read no cursor and name no next page.
[[nodiscard]] MethodResult listTools(const JsonObject& params, const RequestContext& context);
[[nodiscard]] MethodResult listResources(const JsonObject& params, const RequestContext& context);
[[nodiscard]] MethodResult listPrompts(const JsonObject& params, const RequestContext& context);

/// Carries out one tool call and returns its result. Blocks while the desktop app works, on a
/// worker; cancelling the request aborts it. Throws `MCPError` when the server refuses the call,
/// and what `callAppControl` throws. A refusal by the desktop app is a result.
[[nodiscard]] MethodResult callTool(const JsonObject& params, const RequestContext& context);

/// Fetches a fresh snapshot of the resource under `uri` in `params`. Blocks while the desktop app
/// works, on a worker; cancelling the request aborts it. Throws `MCPError` -32602 for an unknown
/// resource, and what `callAppControl` throws. Delivers the app response unchanged, even a refusal.
[[nodiscard]] MethodResult readResource(const JsonObject& params, const RequestContext& context);

/// The prompt that `params` names, its text filled with the arguments given. A task prompt gets a
/// new random task id each time; apart from that, pure. Ignores `arguments` that are not an object.
/// Throws `MCPError` -32602.
[[nodiscard]] MethodResult getPrompt(const JsonObject& params, const RequestContext& context);

}  // namespace quillmere
