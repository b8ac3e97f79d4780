// What the client sees of an answer.
#pragma once

#include <string>

#include "platform/json_value.hpp"

namespace quillmere {

/// The `result` of `tools/call`: the payload whole, a text summary of it, and whether it says that
/// the call failed. Pure; cannot fail.
[[nodiscard]] JsonObject toolResult(JsonObject payload);

/// A few lines that name what matters in the payload. Members that are missing or of an unexpected
/// type are passed over. Pure; cannot fail.
[[nodiscard]] std::string summarizeToolPayload(const JsonObject& payload);

}  // namespace quillmere
