// The method `tools/call`: from a tool's name to its result.
#pragma once

#include "json/writer.hpp"
#include "shared/in_flight_request.hpp"

namespace quillmere {

/// Carries out one tool call and returns its result. Blocks while the desktop app works, on a
/// worker; cancelling `inFlight`, which may be null, breaks it off. Throws
/// `MCPError` when the call is refused or the desktop app can't be asked, and what `callAppControl`
/// throws. A refusal by the desktop app is a result.
[[nodiscard]] JsonText callTool(const JsonObject& params, InFlightRequest* inFlight);

}  // namespace quillmere
