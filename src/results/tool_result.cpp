#include "results/tool_result.hpp"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string_view>
#include <utility>

namespace quillmere {

namespace {

constexpr std::string_view countedLists[] = {"devices", "sessions", "apps"};
constexpr std::size_t shownWarnings = 2;

/// Collects the lines. Each `add…` adds a line only if its member is there and has the right type.
class Summary {
 public:
  void addLine(std::string_view line) {
    if (!text.empty()) text += '\n';
    text += line;
  }

  void addLine(std::string_view label, std::string_view value) {
    addLine(label);
    text += value;
  }

  void addText(std::string_view label, const JsonObject& object, std::string_view key) {
    const std::string* value = object.findString(key);
    if (value != nullptr && !value->empty()) addLine(label, *value);
  }

  void addBoolean(std::string_view label, const JsonObject& object, std::string_view key) {
    if (const auto value = object.findBoolean(key)) addLine(label, *value ? "true" : "false");
  }

  void addInteger(std::string_view label, const JsonObject& object, std::string_view key) {
    const JsonNumber* number = object.findNumber(key);
    const auto value = number != nullptr ? number->integer() : std::nullopt;
    if (value) addLine(label, std::to_string(*value));
  }

  [[nodiscard]] bool empty() const { return text.empty(); }
  [[nodiscard]] std::string take() { return std::move(text); }

 private:
  std::string text;
};

void addOutcome(Summary& summary, const JsonObject& payload) {
  const auto ok = payload.findBoolean("ok");
  if (!ok) return;
  if (*ok) return summary.addLine("Quillmere tool call succeeded.");
  const JsonObject* error = payload.findObject("error");
  const std::string* message = error != nullptr ? error->findString("message") : nullptr;
  if (message != nullptr && !message->empty()) {
    summary.addLine("Quillmere tool call failed: ", *message);
  } else {
    summary.addLine("Quillmere tool call failed.");
  }
}

void addVisiblePackage(Summary& summary, const JsonObject& visibleState) {
  const std::string* package = visibleState.findString("uiTopPackageName");
  const bool isTopKnown = package != nullptr && !package->empty();
  summary.addText("visiblePackage: ", visibleState,
                  isTopKnown ? "uiTopPackageName" : "sessionAppPackageName");
}

void addWarnings(Summary& summary, const JsonArray& warnings) {
  if (!holdsOnlyStrings(warnings)) return;
  for (std::size_t i = 0; i < std::min(shownWarnings, warnings.size()); ++i) {
    const std::string& warning = *warnings[i].asString();
    if (!warning.empty()) summary.addLine("warning: ", warning);
  }
  if (warnings.size() > shownWarnings) {
    summary.addLine("warningCount: ", std::to_string(warnings.size()));
  }
}

}  // namespace

JsonObject toolResult(JsonObject payload) {
  JsonObject text{{"type", "text"}, {"text", summarizeToolPayload(payload)}};
  const bool isError = payload.findBoolean("ok") == false;

  JsonObject result;
  result.set("content", arrayOf(std::move(text)));
  result.set("structuredContent", std::move(payload));
  result.set("isError", isError);
  return result;
}

std::string summarizeToolPayload(const JsonObject& payload) {
  Summary summary;
  addOutcome(summary, payload);
  for (const std::string_view list : countedLists) {
    if (const JsonArray* elements = payload.findArray(list)) {
      summary.addLine(std::string(list) + ": ", std::to_string(elements->size()));
    }
  }
  if (const JsonObject* action = payload.findObject("action")) {
    summary.addText("action: ", *action, "message");
    summary.addBoolean("foregroundVerified: ", *action, "foregroundVerified");
  }
  if (const JsonObject* visibleState = payload.findObject("visibleState")) {
    addVisiblePackage(summary, *visibleState);
  }
  if (const JsonObject* uiState = payload.findObject("uiState")) {
    summary.addInteger("uiNodeCount: ", *uiState, "elementCount");
    summary.addInteger("uiNodesReturned: ", *uiState, "returned");
    summary.addBoolean("uiTruncated: ", *uiState, "truncated");
  }
  if (const JsonArray* warnings = payload.findArray("warnings")) addWarnings(summary, *warnings);
  if (const JsonObject* next = payload.findObject("nextRecommendedTool")) {
    summary.addText("nextRecommendedTool: ", *next, "name");
  }
  summary.addText("auditId: ", payload, "auditId");
  if (summary.empty()) summary.addLine("Quillmere returned structured tool data.");
  summary.addLine("Full result is available in structuredContent.");
  return summary.take();
}

}  // namespace quillmere
