// The method table: where a message becomes behaviour.
#pragma once

#include <optional>

#include "core/server_context.hpp"
#include "json/value.hpp"
#include "json/writer.hpp"
#include "shared/in_flight_request.hpp"

namespace quillmere {

/// Checks the envelope of `message` and carries out its method. Returns the `result` of the
/// response, or nothing when the message gets none. `inFlight` is the record of a message on a
/// worker, null on the main thread. Blocks as long as the method does; from any thread. Throws
/// `MCPError`, and `JsonError` when the desktop app answers no JSON.
[[nodiscard]] std::optional<JsonText> handleRequest(const JsonObject& message,
                                                    ServerContext& server,
                                                    InFlightRequest* inFlight);

/// Whether the method called `name` waits for the desktop app, so that its requests belong on a
/// worker. Pure.
[[nodiscard]] bool runsOnWorker(std::string_view name);

}  // namespace quillmere
