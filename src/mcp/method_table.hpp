// The method table: where a message becomes behaviour.
#pragma once

#include <optional>
#include <string_view>

#include "json/value.hpp"
#include "json/writer.hpp"
#include "mcp/dialect.hpp"
#include "protocol/in_flight_request.hpp"
#include "protocol/server_state.hpp"

namespace quillmere {

/// What the methods share. Every part is thread-safe.
struct ServerContext {
  const Dialect& dialect;
  ServerState state = {};
  InFlightRequests inFlightRequests = {};
};

/// What a method knows about its message besides the `params`.
struct RequestContext {
  ServerContext& server;
  /// The message's id, if it has one.
  std::optional<JsonValue> id = std::nullopt;
  /// Present only on a worker.
  InFlightRequest* inFlight = nullptr;
};

/// The `result` of the response, or nothing for a message without a response.
using MethodResult = std::optional<JsonText>;

/// One row: a method and the function that carries it out.
struct Method {
  enum class Gate { open, needsInitialize };
  /// A method that waits for the desktop app runs on a worker, so that the main thread keeps
  /// reading. All others run on the main thread, in the order of arrival.
  enum class RunsOn { mainThread, worker };

  std::string_view name;
  Gate gate;
  MethodResult (*carryOut)(const JsonObject& params, const RequestContext& context);
  RunsOn runsOn = RunsOn::mainThread;
};

/// The row of the method of exactly this name, or null. Pure.
[[nodiscard]] const Method* findMethod(std::string_view name, const Dialect& dialect);

/// Checks the envelope of `message` and carries out `method`, which is null if the method is
/// unknown. Blocks as long as the method does. Throws `MCPError`, and `JsonError` when the desktop
/// app's response is not JSON.
[[nodiscard]] MethodResult handleRequest(const JsonObject& message, const Method* method,
                                         const RequestContext& context);

}  // namespace quillmere
