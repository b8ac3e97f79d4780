// For the summary we read a few members of a response that may be megabytes long. We pass the
// response on by reference, byte for byte, and rewrite it only if guidance is added.
#include "results/tool_result.hpp"

#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

namespace quillmere {

namespace {

constexpr std::string_view countedLists[] = {"devices", "sessions", "apps"};
constexpr std::size_t shownWarnings = 2;

/// Collects the lines. Each `add…` adds a line only if its member exists and has the right type.
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

  void addText(std::string_view label, const JsonObject& object, std::string_view key,
               Spelling spelled = catalogueSpelling) {
    const auto value = object.findString(key);
    if (value && !value->view().empty()) addLine(label, spelled(value->view()));
  }

  void addBoolean(std::string_view label, const JsonObject& object, std::string_view key) {
    if (const auto value = object.findBoolean(key)) addLine(label, *value ? "true" : "false");
  }

  void addInteger(std::string_view label, const JsonObject& object, std::string_view key) {
    const auto number = object.findNumber(key);
    const auto value = number ? number->integer() : std::nullopt;
    if (value) addLine(label, std::to_string(*value));
  }

  [[nodiscard]] bool empty() const { return text.empty(); }
  [[nodiscard]] std::string take() { return std::move(text); }

 private:
  std::string text;
};

void addOutcome(Summary& summary, const JsonObject& appResponse, Spelling spelled) {
  const auto ok = appResponse.findBoolean("ok");
  if (!ok) return;
  if (*ok) return summary.addLine("Quillmere tool call succeeded.");
  const auto error = appResponse.findObject("error");
  const auto message = error ? error->findString("message") : std::nullopt;
  if (message && !message->view().empty()) {
    summary.addLine("Quillmere tool call failed: ", spelled(message->view()));
  } else {
    summary.addLine("Quillmere tool call failed.");
  }
}

void addVisiblePackage(Summary& summary, const JsonObject& visibleState) {
  const auto package = visibleState.findString("uiTopPackageName");
  const bool isTopKnown = package && !package->view().empty();
  summary.addText("visiblePackage: ", visibleState,
                  isTopKnown ? "uiTopPackageName" : "sessionAppPackageName");
}

void addWarnings(Summary& summary, const GuidedResponse& guided, Spelling spelled) {
  std::size_t count = 0;
  const auto addWarning = [&](std::string_view warning) {
    // An empty one counts as shown, but adds no line.
    if (count++ < shownWarnings && !warning.empty()) summary.addLine("warning: ", warning);
  };
  if (const auto own = guided.ownWarnings()) {
    for (const JsonValue& warning : *own) addWarning(spelled(warning.asString()->view()));
  }
  if (guided.addedWarning) addWarning(*guided.addedWarning);
  if (count > shownWarnings) summary.addLine("warningCount: ", std::to_string(count));
}

}  // namespace

bool isFailure(const GuidedResponse& guided) {
  return guided.appResponse.findBoolean("ok") == false;
}

JsonText structuredContent(const GuidedResponse& guided) {
  const auto& [appResponse, addedWarning, next] = guided;
  // The original bytes, unless we add something.
  if (!guided.isChanged()) return appResponse;

  // Not `set` over the old members: the key would appear twice, and not all clients use the same
  // one.
  std::vector<std::string_view> replaced;
  if (addedWarning) replaced.emplace_back("warnings");
  if (next) replaced.emplace_back("nextRecommendedTool");
  JsonText content = JsonText::object();
  content.setMembersOf(appResponse, replaced);
  if (addedWarning) {
    const auto own = guided.ownWarnings();
    JsonText warnings = own ? JsonText::arrayOf(*own) : JsonText::array();
    warnings.add(*addedWarning);
    content.set("warnings", std::move(warnings));
  }
  if (next) {
    JsonText arguments = JsonText::object();
    if (next->deviceSerial) arguments.set("deviceSerial", *next->deviceSerial);
    content.set("nextRecommendedTool",
                JsonText{{"name", next->name}, {"arguments", std::move(arguments)}});
  }
  return content;
}

std::string summaryLines(const GuidedResponse& guided, Spelling spelled) {
  const JsonObject& appResponse = guided.appResponse;
  Summary summary;
  addOutcome(summary, appResponse, spelled);
  for (const std::string_view list : countedLists) {
    if (const auto elements = appResponse.findArray(list)) {
      summary.addLine(std::string(list) + ": ", std::to_string(elements->size()));
    }
  }
  if (const auto action = appResponse.findObject("action")) {
    summary.addText("action: ", *action, "message");
    summary.addBoolean("foregroundVerified: ", *action, "foregroundVerified");
  }
  if (const auto visibleState = appResponse.findObject("visibleState")) {
    addVisiblePackage(summary, *visibleState);
  }
  if (const auto uiState = appResponse.findObject("uiState")) {
    summary.addInteger("uiNodeCount: ", *uiState, "elementCount");
    summary.addInteger("uiNodesReturned: ", *uiState, "returned");
    summary.addBoolean("uiTruncated: ", *uiState, "truncated");
  }
  addWarnings(summary, guided, spelled);
  if (guided.nextRecommendedTool) {
    summary.addLine("nextRecommendedTool: ", guided.nextRecommendedTool->name);
  } else if (const auto next = appResponse.findObject("nextRecommendedTool")) {
    summary.addText("nextRecommendedTool: ", *next, "name", spelled);
  }
  summary.addText("auditId: ", appResponse, "auditId");
  if (summary.empty()) summary.addLine("Quillmere returned structured tool data.");
  return summary.take();
}

std::string summarizeToolPayload(const GuidedResponse& guided) {
  return summaryLines(guided, catalogueSpelling) +
         "\nFull result is available in structuredContent.";
}

JsonText toolResult(const GuidedResponse& guided) {
  JsonText content = JsonText::array();
  content.add(JsonText{{"type", "text"}, {"text", summarizeToolPayload(guided)}});
  return JsonText{{"content", std::move(content)},
                  {"structuredContent", structuredContent(guided)},
                  {"isError", isFailure(guided)}};
}

}  // namespace quillmere
