#include "results/guidance.hpp"

#include <algorithm>
#include <vector>

#include "platform/text.hpp"

namespace quillmere {

namespace {

/// The elements under `key` if that is an array of objects only; otherwise none.
std::vector<JsonObject> objectsIn(const JsonObject& payload, std::string_view key) {
  const auto array = payload.findArray(key);
  if (!array) return {};
  std::vector<JsonObject> objects;
  for (const JsonValue& element : *array) {
    const auto object = element.asObject();
    if (!object) return {};
    objects.push_back(*object);
  }
  return objects;
}

void addSessionHint(GuidedPayload& guided, const JsonObject& arguments) {
  const auto isPhoneScreen = [](const JsonObject& session) {
    return session.findString("sessionKind") == "phoneScreen";
  };
  if (std::ranges::any_of(objectsIn(guided.answer, "sessions"), isPhoneScreen)) return;

  std::optional<std::string> serial;
  if (const auto given = arguments.findString("deviceSerial")) serial = given->view();
  std::string text = "No Phone Screen session is active. Call quillmere.session.start";
  if (serial && !serial->empty()) text += " with deviceSerial=" + *serial;
  text += " before observe/input/UI tools.";
  guided.addedWarning = std::move(text);
  guided.nextRecommendedTool = {.name = "quillmere.session.start",
                                .deviceSerial = std::move(serial)};
}

void addStartHint(GuidedPayload& guided, const JsonObject& /*arguments*/) {
  std::string serials;
  bool isFirst = true;
  for (const JsonObject& device : objectsIn(guided.answer, "devices")) {
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
  guided.addedWarning =
      "Devices with no active mirror session can be started with quillmere.session.start: " +
      serials;
}

struct Hint {
  std::string_view tool;
  void (*add)(GuidedPayload& guided, const JsonObject& arguments);
};

constexpr Hint hints[] = {
    {"quillmere.sessions.list", addSessionHint},
    {"quillmere.devices.list", addStartHint},
};

}  // namespace

std::optional<JsonArray> GuidedPayload::ownWarnings() const {
  const auto warnings = answer.findArray("warnings");
  return warnings && holdsOnlyStrings(*warnings) ? warnings : std::nullopt;
}

GuidedPayload addGuidance(std::string_view name, const JsonObject& arguments,
                          const JsonObject& payload) {
  GuidedPayload guided(payload);
  const auto* hint = std::ranges::find(hints, name, &Hint::tool);
  if (hint != std::end(hints) && payload.findBoolean("ok") == true) hint->add(guided, arguments);
  return guided;
}

}  // namespace quillmere
