// Hints for the AI in an app response, so that it starts a session before it acts.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "json/value.hpp"

namespace quillmere {

/// An app response and what the server adds to it. Valid as long as the response's document.
struct GuidedResponse {
  struct RecommendedTool {
    std::string name;
    std::optional<std::string> deviceSerial;
  };

  GuidedResponse(const JsonObject& response) : appResponse(response) {}

  JsonObject appResponse;
  /// Comes after the response's own warnings.
  std::optional<std::string> addedWarning = {};
  /// Replaces the response's own recommendation.
  std::optional<RecommendedTool> nextRecommendedTool = {};

  /// The response's `warnings` if it is an array of strings; any other value counts as none.
  [[nodiscard]] std::optional<JsonArray> ownWarnings() const;

  [[nodiscard]] bool isChanged() const { return addedWarning || nextRecommendedTool; }
};

/// Replaces the catalogue's tool names in a text of ours with the names that the client knows.
using Spelling = std::string (*)(std::string_view text);

/// For a client that knows tools by the catalogue's names: `text` as it is.
[[nodiscard]] inline std::string catalogueSpelling(std::string_view text) {
  return std::string(text);
}

/// The app response to the tool `name` called with `arguments`, plus a warning that says what to do
/// next and, for the list of sessions, the recommended next tool. Responses of other tools and
/// failures stay unchanged. Pure; cannot fail.
[[nodiscard]] GuidedResponse addGuidance(std::string_view name, const JsonObject& arguments,
                                         const JsonObject& appResponse, Spelling spelled);

}  // namespace quillmere
