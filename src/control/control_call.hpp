// One call to the desktop app: a new connection, one frame out, one frame back.
#pragma once

#include <memory>
#include <string_view>

#include "json/document.hpp"
#include "json/writer.hpp"
#include "protocol/in_flight_request.hpp"

namespace quillmere {

/// Refuses a string argument that is longer than its limit in user-perceived characters. The limits
/// are the same for all commands, whatever a tool's schema allows. Values of other types pass.
/// Pure. Throws `MCPError` -32602.
void checkStringLimits(const JsonObject& arguments);

/// Whether an argument of this name goes to the desktop app. `id` and `command` do not, so that no
/// argument can replace the request's own.
[[nodiscard]] bool isControlField(std::string_view name);

/// The request that carries `command` to the desktop app under a new random id. The `arguments`
/// that are control fields and not null are members beside it. Apart from the id, pure.
[[nodiscard]] JsonText controlRequest(std::string_view command, const JsonObject& arguments);

/// Sends the command and returns the app response, an object. Blocks for the whole exchange, on a
/// worker; cancelling `inFlight` aborts it. Closes the connection. Throws `MCPError`: -32602 for
/// arguments that may not leave the process, -32000 for a desktop app that can't be reached or
/// sends no valid frame, -32800 when cancelled. Throws `JsonError` for a response that is not JSON.
[[nodiscard]] std::shared_ptr<const JsonDocument> callAppControl(std::string_view command,
                                                                 const JsonObject& arguments,
                                                                 InFlightRequest& inFlight);

}  // namespace quillmere
