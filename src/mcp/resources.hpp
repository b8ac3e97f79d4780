// The methods `resources/list` and `resources/read`: what the desktop app knows, as JSON text.
#pragma once

#include "json/writer.hpp"
#include "shared/in_flight_request.hpp"

namespace quillmere {

/// The entries of `resources/list`, an array. Pure.
[[nodiscard]] JsonText resourceList();

/// Fetches a fresh snapshot of the resource under `uri` in `params`. Blocks while the desktop app
/// works, on a worker; cancelling `inFlight`, which may be null, breaks it off.
/// Throws `MCPError` -32602 for an unknown resource, and what `callAppControl` throws. The desktop
/// app's answer is delivered as it is, a refusal too.
[[nodiscard]] JsonText readResource(const JsonObject& params, InFlightRequest* inFlight);

}  // namespace quillmere
