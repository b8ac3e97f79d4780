// What the client sees of an answer.
#pragma once

#include <string>

#include "json/writer.hpp"
#include "results/guidance.hpp"

namespace quillmere {

/// The `result` of `tools/call`: the payload whole, a text summary of it, and whether it says that
/// the call failed. It refers to the payload's bytes and keeps their document. Pure; cannot fail.
[[nodiscard]] JsonText toolResult(const GuidedPayload& payload);

/// A few lines that name what matters in the payload. Members that are missing or of an unexpected
/// type are passed over. Pure; cannot fail.
[[nodiscard]] std::string summarizeToolPayload(const GuidedPayload& guided);

}  // namespace quillmere
