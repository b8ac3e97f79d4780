// The method table: where a message becomes behaviour.
#pragma once

#include <optional>
#include <string_view>
#include <variant>

#include "json/value.hpp"
#include "json/writer.hpp"
#include "protocol/in_flight_request.hpp"
#include "server/server.hpp"
#include "tools/form.hpp"

namespace quillmere {

/// One row: a method, and what carries it out.
struct Method {
  /// On the main thread, in the order of arrival. Returns nothing for a message that gets no
  /// response.
  using OnMainThread = std::optional<JsonText> (*)(const JsonObject& params, ServerContext& server);
  /// On a worker, since it waits for the desktop app; cancelling the request breaks it off.
  using OnWorker = JsonText (*)(const JsonObject& params, InFlightRequest& request,
                                const Form& form);

  enum class Gate { open, needsInitialize };

  std::string_view name;
  Gate gate;
  std::variant<OnMainThread, OnWorker> carryOut;
  /// What a form must have for the method to be there at all, if that is not so in every form.
  bool Form::*condition = nullptr;

  [[nodiscard]] constexpr bool isForWorkers() const {
    return std::holds_alternative<OnWorker>(carryOut);
  }
};

/// The row of the method of exactly this name in this form, or null. Pure.
[[nodiscard]] const Method* findMethod(std::string_view name, const Form& form);

/// Checks the envelope of `message` and carries out its method here: that of `method`, one for the
/// main thread, or null for a method that nobody knows. Returns the `result` of the response, or
/// nothing when the message gets none. `id` is the message's. Main thread only. Throws `MCPError`.
[[nodiscard]] std::optional<JsonText> handleRequest(const JsonObject& message,
                                                    const std::optional<JsonValue>& id,
                                                    const Method* method, ServerContext& server);

/// The same for a request on a worker, with a method for workers, which always has a result. Blocks
/// as long as the method does. Throws `MCPError`, and `JsonError` when the desktop app answers no
/// JSON.
[[nodiscard]] JsonText handleRequest(InFlightRequest& request, const Method& method,
                                     const ServerContext& server);

}  // namespace quillmere
