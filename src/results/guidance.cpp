#include "results/guidance.hpp"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "platform/text.hpp"

namespace quillmere {

namespace {

/// The elements under `key` if that is an array of objects only; otherwise none.
std::vector<const JsonObject*> objectsIn(const JsonObject& payload, std::string_view key) {
  const JsonArray* array = payload.findArray(key);
  if (array == nullptr) return {};
  std::vector<const JsonObject*> objects;
  for (const JsonValue& element : *array) {
    if (element.asObject() == nullptr) return {};
    objects.push_back(element.asObject());
  }
  return objects;
}

/// Adds behind the warnings that came; an array that does not hold strings only counts as none.
void addWarning(JsonObject& payload, std::string text) {
  JsonArray warnings;
  const JsonArray* present = payload.findArray("warnings");
  if (present != nullptr && holdsOnlyStrings(*present)) warnings = *present;
  warnings.emplace_back(std::move(text));
  payload.set("warnings", std::move(warnings));
}

void addSessionHint(JsonObject& payload, const JsonObject& arguments) {
  const auto isPhoneScreen = [](const JsonObject* session) {
    const std::string* kind = session->findString("sessionKind");
    return kind != nullptr && *kind == "phoneScreen";
  };
  if (std::ranges::any_of(objectsIn(payload, "sessions"), isPhoneScreen)) return;

  const std::string* serial = arguments.findString("deviceSerial");
  std::string text = "No Phone Screen session is active. Call quillmere.session.start";
  if (serial != nullptr && !serial->empty()) text += " with deviceSerial=" + *serial;
  text += " before observe/input/UI tools.";
  addWarning(payload, std::move(text));

  JsonObject next;
  if (serial != nullptr) next.set("deviceSerial", *serial);
  payload.set("nextRecommendedTool",
              JsonObject{{"name", "quillmere.session.start"}, {"arguments", std::move(next)}});
}

void addStartHint(JsonObject& payload, const JsonObject& /*arguments*/) {
  std::vector<std::string_view> serials;
  for (const JsonObject* device : objectsIn(payload, "devices")) {
    const std::string* serial = device->findString("serial");
    if (device->findBoolean("supportsMirror") == true &&
        device->findBoolean("hasActiveMirrorSessions") == false && serial != nullptr) {
      serials.emplace_back(*serial);
    }
  }
  if (serials.empty()) return;
  addWarning(payload,
             "Devices with no active mirror session can be started with quillmere.session.start: " +
                 joined(serials, ", "));
}

struct Hint {
  std::string_view tool;
  void (*add)(JsonObject& payload, const JsonObject& arguments);
};

constexpr Hint hints[] = {
    {"quillmere.sessions.list", addSessionHint},
    {"quillmere.devices.list", addStartHint},
};

}  // namespace

JsonObject addGuidance(std::string_view name, const JsonObject& arguments, JsonObject payload) {
  if (payload.findBoolean("ok") != true) return payload;
  for (const Hint& hint : hints) {
    if (hint.tool == name) hint.add(payload, arguments);
  }
  return payload;
}

}  // namespace quillmere
