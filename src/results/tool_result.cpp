// Of an answer that may hold megabytes a few members are read, for the summary; the rest is passed
// on by reference, as the bytes that came. The answer is written anew only where guidance is added
// or the client's form requires it.
#include "results/tool_result.hpp"

#include <algorithm>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

#include "json/document.hpp"
#include "results/pictures.hpp"

namespace quillmere {

namespace {

/// The array under `key` if it holds objects only, or nothing.
std::optional<JsonArray> objectsIn(const JsonObject& payload, std::string_view key) {
  const auto array = payload.findArray(key);
  const auto isObject = [](const JsonValue& element) { return element.asObject().has_value(); };
  return array && std::ranges::all_of(*array, isObject) ? array : std::nullopt;
}

void addSessionHint(GuidedPayload& guided, const JsonObject& arguments, const Form& form) {
  const auto isPhoneScreen = [](const JsonValue& session) {
    return session.asObject()->findString("sessionKind") == "phoneScreen";
  };
  // Other kinds of session can't be observed or tapped: for these tools there is none.
  const auto sessions = objectsIn(guided.answer, "sessions");
  if (sessions && std::ranges::any_of(*sessions, isPhoneScreen)) return;

  std::optional<std::string> serial;
  if (const auto given = arguments.findString("deviceSerial")) serial = given->view();
  std::string text =
      form.spelled("No Phone Screen session is active. Call quillmere.session.start");
  if (serial && !serial->empty()) text += " with deviceSerial=" + *serial;
  text += " before observe/input/UI tools.";
  guided.addedWarning = std::move(text);
  guided.nextRecommendedTool = {.name = form.spelled("quillmere.session.start"),
                                .deviceSerial = std::move(serial)};
}

void addStartHint(GuidedPayload& guided, const JsonObject& /*arguments*/, const Form& form) {
  const auto devices = objectsIn(guided.answer, "devices");
  if (!devices) return;
  std::string serials;
  bool isFirst = true;
  for (const JsonValue& element : *devices) {
    const JsonObject device = *element.asObject();
    const auto serial = device.findString("serial");
    if (device.findBoolean("supportsMirror") != true ||
        device.findBoolean("hasActiveMirrorSessions") != false || !serial) {
      continue;
    }
    if (!isFirst) serials += ", ";
    serials += serial->view();
    isFirst = false;
  }
  if (isFirst) return;
  guided.addedWarning = form.spelled(
                            "Devices with no active mirror session can be started with "
                            "quillmere.session.start: ") +
                        serials;
}

struct Hint {
  std::string_view tool;
  void (*add)(GuidedPayload& guided, const JsonObject& arguments, const Form& form);
};

constexpr Hint hints[] = {
    {"quillmere.sessions.list", addSessionHint},
    {"quillmere.devices.list", addStartHint},
};

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
    const auto value = object.findString(key);
    if (value && !value->view().empty()) addLine(label, value->view());
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

void addOutcome(Summary& summary, const JsonObject& payload) {
  const auto ok = payload.findBoolean("ok");
  if (!ok) return;
  if (*ok) return summary.addLine("Quillmere tool call succeeded.");
  const auto error = payload.findObject("error");
  const auto message = error ? error->findString("message") : std::nullopt;
  if (message && !message->view().empty()) {
    summary.addLine("Quillmere tool call failed: ", message->view());
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

void addWarnings(Summary& summary, const GuidedPayload& payload) {
  std::size_t count = 0;
  const auto addWarning = [&](std::string_view warning) {
    // An empty one is counted and takes up a place, but has nothing to show.
    if (count++ < shownWarnings && !warning.empty()) summary.addLine("warning: ", warning);
  };
  if (const auto own = payload.ownWarnings()) {
    for (const JsonValue& warning : *own) addWarning(warning.asString()->view());
  }
  if (payload.addedWarning) addWarning(*payload.addedWarning);
  if (count > shownWarnings) summary.addLine("warningCount: ", std::to_string(count));
}

JsonText structuredContent(const GuidedPayload& payload) {
  const auto& [answer, addedWarning, next] = payload;
  // The very bytes that came, unless something is added to them.
  if (!addedWarning && !next) return answer;

  // Not `set` over the old members: a key would be there twice, and clients differ in which they
  // take.
  std::vector<std::string_view> replaced;
  if (addedWarning) replaced.emplace_back("warnings");
  if (next) replaced.emplace_back("nextRecommendedTool");
  JsonText content = JsonText::object();
  content.setMembersOf(answer, replaced);
  if (addedWarning) {
    const auto own = payload.ownWarnings();
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

/// Adds the payload to a result's content: as JSON text, and each picture in it as an item of its
/// own, which the text names in the picture's place.
void addPayload(JsonText& content, const GuidedPayload& payload) {
  // `quoted` needs a document without blanks that says where the pictures are. The app's own is
  // used if it has none and nothing was added to the answer; otherwise the answer is written and
  // read again.
  const bool isWhole = !payload.addedWarning && !payload.nextRecommendedTool;
  const JsonValue answer = payload.answer.asValue();
  const auto made = isWhole && answer.holder().isCompact()
                        ? nullptr
                        : parseCompactJson(structuredContent(payload).str());
  const JsonValue value = made == nullptr ? answer : made->root();

  // Items count from 1: the summary and this text are the first two.
  constexpr std::size_t firstPictureItem = 3;
  const std::vector<Picture> pictures = picturesIn(value);
  std::vector<JsonText::Replacement> notes;
  for (const Picture& picture : pictures) {
    const std::size_t item = firstPictureItem + notes.size();
    notes.push_back({picture.base64, "picture: item " + std::to_string(item) + " of this content"});
  }
  content.add(JsonText{{"type", "text"}, {"text", JsonText::quoted(value, notes)}});
  for (const auto& [base64, mimeType] : pictures) {
    content.add(JsonText{{"type", "image"}, {"data", base64}, {"mimeType", mimeType}});
  }
}

}  // namespace

std::optional<JsonArray> GuidedPayload::ownWarnings() const {
  const auto warnings = answer.findArray("warnings");
  return warnings && holdsOnlyStrings(*warnings) ? warnings : std::nullopt;
}

GuidedPayload addGuidance(std::string_view name, const JsonObject& arguments,
                          const JsonObject& payload, const Form& form) {
  GuidedPayload guided(payload);
  const auto* hint = std::ranges::find(hints, name, &Hint::tool);
  if (hint != std::end(hints) && payload.findBoolean("ok") == true)
    hint->add(guided, arguments, form);
  return guided;
}

JsonText toolResult(const GuidedPayload& payload, const Form& form) {
  JsonText content = JsonText::array();
  content.add(JsonText{{"type", "text"}, {"text", summarizeToolPayload(payload, form)}});
  JsonText result = JsonText::object();
  if (form.hasStructuredContent) {
    result.set("content", std::move(content));
    result.set("structuredContent", structuredContent(payload));
  } else {
    addPayload(content, payload);
    result.set("content", std::move(content));
  }
  result.set("isError", payload.answer.findBoolean("ok") == false);
  return result;
}

std::string summarizeToolPayload(const GuidedPayload& guided, const Form& form) {
  const JsonObject& payload = guided.answer;
  Summary summary;
  addOutcome(summary, payload);
  for (const std::string_view list : countedLists) {
    if (const auto elements = payload.findArray(list)) {
      summary.addLine(std::string(list) + ": ", std::to_string(elements->size()));
    }
  }
  if (const auto action = payload.findObject("action")) {
    summary.addText("action: ", *action, "message");
    summary.addBoolean("foregroundVerified: ", *action, "foregroundVerified");
  }
  if (const auto visibleState = payload.findObject("visibleState")) {
    addVisiblePackage(summary, *visibleState);
  }
  if (const auto uiState = payload.findObject("uiState")) {
    summary.addInteger("uiNodeCount: ", *uiState, "elementCount");
    summary.addInteger("uiNodesReturned: ", *uiState, "returned");
    summary.addBoolean("uiTruncated: ", *uiState, "truncated");
  }
  addWarnings(summary, guided);
  if (guided.nextRecommendedTool) {
    summary.addLine("nextRecommendedTool: ", guided.nextRecommendedTool->name);
  } else if (const auto next = payload.findObject("nextRecommendedTool")) {
    summary.addText("nextRecommendedTool: ", *next, "name");
  }
  summary.addText("auditId: ", payload, "auditId");
  if (summary.empty()) summary.addLine("Quillmere returned structured tool data.");
  summary.addLine(form.hasStructuredContent
                      ? "Full result is available in structuredContent."
                      : "The full result is the next item of this content, as JSON text.");
  return summary.take();
}

}  // namespace quillmere
