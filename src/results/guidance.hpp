// Hints for the AI in an app response, so that it starts a session before it acts.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "json/value.hpp"

namespace quillmere {

/// An app response, and what the server adds to it. Valid as long as the response's document.
struct GuidedResponse {
  struct RecommendedTool {
    std::string name;
    std::optional<std::string> deviceSerial;
  };

  GuidedResponse(const JsonObject& response) : appResponse(response) {}

  JsonObject appResponse;
  /// Comes after the response's own warnings.
  std::optional<std::string> addedWarning = {};
  /// Takes the place of the response's own recommendation.
  std::optional<RecommendedTool> nextRecommendedTool = {};

  /// The response's `warnings` if that is an array of strings; as any other value it counts as
  /// none.
  [[nodiscard]] std::optional<JsonArray> ownWarnings() const;

  [[nodiscard]] bool isChanged() const { return addedWarning || nextRecommendedTool; }
};

/// Gives a text of ours, which names tools as the catalogue does, the names that the client knows.
using Spelling = std::string (*)(std::string_view text);

/// The app response to the tool called `name` with `arguments`, with what to do next as a warning
/// and, after a look at the sessions, as the recommended next tool. Responses to other tools, and
/// those that report a failure, stay as they were. Pure; cannot fail.
[[nodiscard]] GuidedResponse addGuidance(std::string_view name, const JsonObject& arguments,
                                         const JsonObject& appResponse, Spelling spelled);

}  // namespace quillmere
