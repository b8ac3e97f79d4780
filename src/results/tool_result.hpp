// What the client sees of an answer: all of it, a summary, and hints for the AI, so that it starts
// a session before it acts.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "json/value.hpp"
#include "json/writer.hpp"
#include "tools/form.hpp"

namespace quillmere {

/// The desktop app's answer, and what the server adds to it. Valid as long as the answer's
/// document.
struct GuidedPayload {
  struct RecommendedTool {
    std::string name;
    std::optional<std::string> deviceSerial;
  };

  GuidedPayload(const JsonObject& payload) : answer(payload) {}

  JsonObject answer;
  /// Comes after the answer's own ones.
  std::optional<std::string> addedWarning = {};
  /// Takes the place of the answer's own one.
  std::optional<RecommendedTool> nextRecommendedTool = {};

  /// The answer's `warnings` if that is an array of strings; as any other value it counts as none.
  [[nodiscard]] std::optional<JsonArray> ownWarnings() const;
};

/// `payload`, the desktop app's answer to the tool called `name` with `arguments`, with what to do
/// next as a warning and, after a look at the sessions, as the recommended next tool. Other tools
/// and failed calls get it back as it was. Pure; cannot fail.
[[nodiscard]] GuidedPayload addGuidance(std::string_view name, const JsonObject& arguments,
                                        const JsonObject& payload, const Form& form);

/// The `result` of `tools/call`: the payload whole, a text summary of it, and whether it says that
/// the call failed. It refers to the payload's bytes and keeps their document. Pure; cannot fail.
[[nodiscard]] JsonText toolResult(const GuidedPayload& payload, const Form& form);

/// A few lines that name what matters in the payload. Members that are missing or of an unexpected
/// type are passed over. Pure; cannot fail.
[[nodiscard]] std::string summarizeToolPayload(const GuidedPayload& guided, const Form& form);

}  // namespace quillmere
