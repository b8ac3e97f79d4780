#include "results/guidance.hpp"

#include <algorithm>
#include <utility>

namespace quillmere {

namespace {

/// The array under `key` if it holds only objects, or nothing.
std::optional<JsonArray> objectsIn(const JsonObject& object, std::string_view key) {
  const auto array = object.findArray(key);
  const auto isObject = [](const JsonValue& element) { return element.asObject().has_value(); };
  return array && std::ranges::all_of(*array, isObject) ? array : std::nullopt;
}

void addSessionHint(GuidedResponse& guided, const JsonObject& arguments, Spelling spelled) {
  const auto isPhoneScreen = [](const JsonValue& session) {
    return session.asObject()->findString("sessionKind") == "phoneScreen";
  };
  // Other kinds of session can't be observed or tapped, so they do not count.
  const auto sessions = objectsIn(guided.appResponse, "sessions");
  if (sessions && std::ranges::any_of(*sessions, isPhoneScreen)) return;

  std::optional<std::string> serial;
  if (const auto given = arguments.findString("deviceSerial")) serial = given->view();
  std::string text = spelled("No Phone Screen session is active. Call quillmere.session.start");
  if (serial && !serial->empty()) text += " with deviceSerial=" + *serial;
  text += " before observe/input/UI tools.";
  guided.addedWarning = std::move(text);
  guided.nextRecommendedTool = {.name = spelled("quillmere.session.start"),
                                .deviceSerial = std::move(serial)};
}

void addStartHint(GuidedResponse& guided, const JsonObject& /*arguments*/, Spelling spelled) {
  const auto devices = objectsIn(guided.appResponse, "devices");
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
  guided.addedWarning = spelled(
                            "Devices with no active mirror session can be started with "
                            "quillmere.session.start: ") +
                        serials;
}

struct Hint {
  std::string_view tool;
  void (*add)(GuidedResponse& guided, const JsonObject& arguments, Spelling spelled);
};

constexpr Hint hints[] = {
    {"quillmere.sessions.list", addSessionHint},
    {"quillmere.devices.list", addStartHint},
};

}  // namespace

std::optional<JsonArray> GuidedResponse::ownWarnings() const {
  const auto warnings = appResponse.findArray("warnings");
  return warnings && holdsOnlyStrings(*warnings) ? warnings : std::nullopt;
}

GuidedResponse addGuidance(std::string_view name, const JsonObject& arguments,
                           const JsonObject& appResponse, Spelling spelled) {
  GuidedResponse guided(appResponse);
  const auto* hint = std::ranges::find(hints, name, &Hint::tool);
  if (hint != std::end(hints) && appResponse.findBoolean("ok") == true) {
    hint->add(guided, arguments, spelled);
  }
  return guided;
}

}  // namespace quillmere
