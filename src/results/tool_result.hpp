// What the client sees of an app response: all of it, and a summary.
#pragma once

#include <string>

#include "json/writer.hpp"
#include "results/guidance.hpp"

namespace quillmere {

/// The `result` of `tools/call`: the whole response, a text summary of it, and whether it reports a
/// failure. It refers to the response's bytes and keeps their document alive. Pure; cannot fail.
[[nodiscard]] JsonText toolResult(const GuidedResponse& guided);

/// A few lines that name what matters in the response, and a last one that says where the rest is.
/// Skips members that are missing or have an unexpected type. Pure; cannot fail.
[[nodiscard]] std::string summarizeToolPayload(const GuidedResponse& guided);

// Parts of it, for other ways to show a response. All are pure and cannot fail.

/// The summary without its last line; never empty. `spelled` gives what the app says of tools the
/// names that the client knows.
[[nodiscard]] std::string summaryLines(const GuidedResponse& guided, Spelling spelled);

/// The response with our additions, as JSON; the original bytes if there are none.
[[nodiscard]] JsonText structuredContent(const GuidedResponse& guided);

/// Whether the response reports a failure.
[[nodiscard]] bool isFailure(const GuidedResponse& guided);

}  // namespace quillmere
