// What carries out the methods of MCP, and the lists that some of them return: the handshake,
// tools, resources and prompts (MCP, "Lifecycle" and "Server Features").
#pragma once

#include <optional>
#include <string_view>

#include "json/value.hpp"
#include "json/writer.hpp"
#include "protocol/in_flight_request.hpp"
#include "protocol/server_state.hpp"
#include "tools/form.hpp"

namespace quillmere {

/// The method `initialize`: negotiates, remembers the outcome in `state` and returns the result.
/// May be called any number of times; the last success counts. Main thread only. Throws `MCPError`
/// -32602, with `state` as it was.
[[nodiscard]] JsonText initialize(const JsonObject& params, ServerState& state, const Form& form);

/// The version to speak with a client that asks for `requested`, or for none: the same if it is
/// supported, else the newest one that is not greater as a text, else the oldest. Pure. Throws
/// `MCPError` -32602 when `requested` is no string.
[[nodiscard]] std::string_view negotiatedProtocolVersion(const std::optional<JsonValue>& requested);

/// Throws `MCPError` -32002 for `method` unless `initialize` has succeeded. From any thread.
void requireInitialized(const ServerState& state, std::string_view method);

/// Carries out one tool call and returns its result. Blocks while the desktop app works, on a
/// worker; cancelling `inFlight` breaks it off. Throws `MCPError` when the call is refused or the
/// desktop app can't be asked, and what `callAppControl` throws. A refusal by the desktop app is a
/// result.
[[nodiscard]] JsonText callTool(const JsonObject& params, InFlightRequest& inFlight,
                                const Form& form);

/// The entries of `resources/list`, an array. Pure.
[[nodiscard]] JsonText resourceList();

/// Fetches a fresh snapshot of the resource under `uri` in `params`. Blocks while the desktop app
/// works, on a worker; cancelling `inFlight` breaks it off.
/// Throws `MCPError` -32602 for an unknown resource, and what `callAppControl` throws. The desktop
/// app's answer is delivered as it is, a refusal too.
[[nodiscard]] JsonText readResource(const JsonObject& params, InFlightRequest& inFlight,
                                    const Form& form);

/// The entries of `prompts/list`, an array. Pure.
[[nodiscard]] JsonText promptList();

/// The prompt that `params` names, its text filled with the arguments given. A task prompt gets a
/// new random task id each time; apart from that, pure. `arguments` of another type than object are
/// ignored. Throws `MCPError` -32602.
[[nodiscard]] JsonText getPrompt(const JsonObject& params, const Form& form);

}  // namespace quillmere
