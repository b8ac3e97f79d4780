// What the client sees of an app response: all of it, and a summary.
#pragma once

#include <string>

#include "json/writer.hpp"
#include "results/guidance.hpp"

namespace quillmere {

/// The `result` of `tools/call`: the response whole, a text summary of it, and whether it says that
/// the call failed. It refers to the response's bytes and keeps their document. Pure; cannot fail.
[[nodiscard]] JsonText toolResult(const GuidedResponse& guided);

/// A few lines that name what matters in the response, and a last one that says where the rest is.
/// Members that are missing or of an unexpected type are passed over. Pure; cannot fail.
[[nodiscard]] std::string summarizeToolPayload(const GuidedResponse& guided);

// Its parts, for those who show a response in another way. All are pure and cannot fail.

/// The summary without its last line; never empty.
[[nodiscard]] std::string summaryLines(const GuidedResponse& guided);

/// The response with what was added to it, as JSON: the very bytes that came if nothing was.
[[nodiscard]] JsonText structuredContent(const GuidedResponse& guided);

/// Whether the response says that the call failed.
[[nodiscard]] bool isFailure(const GuidedResponse& guided);

}  // namespace quillmere
