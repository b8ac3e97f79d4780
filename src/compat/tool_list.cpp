#include "compat/tool_list.hpp"

#include <algorithm>
#include <memory>
#include <string>
#include <utility>

#include "compat/names.hpp"
#include "platform/text.hpp"
#include "tools/catalogue.hpp"

namespace quillmere {

namespace {

struct ShortDescription {
  std::string_view property;
  std::string_view text;
  /// Only for tools that have these; the first row that fits counts.
  unsigned fragments = noFragment;
};

/// A model reads all descriptions before its first call, and most arguments in many tools. So an
/// argument has the shortest text that says what to give, or nothing that its name says already.
constexpr ShortDescription shortDescriptions[] = {
    {"taskId", "Same in all calls of a task."},
    {"taskName", "Its name for the user."},
    {"sessionId", "From quillmere_sessions_list."},
    {"deviceSerial", "Instead of sessionId if it has one session.", sessionTarget},
    {"deviceSerial", "From quillmere_devices_list."},
    {"userAcknowledgementText", "The user's exact words, if Quillmere asks."},
    {"topic",
     "workflow: order of steps; session: when there is none; ui: UI state; key: key names."},
    {"includeOffline", "Also devices that are offline."},
    {"includeImage", "Add a screenshot."},
    {"x", "Mirror pixels."},
    {"y", "Mirror pixels."},
    {"startX", "Mirror pixels."},
    {"startY", "Mirror pixels."},
    {"endX", "Mirror pixels."},
    {"endY", "Mirror pixels."},
    {"durationMs", "Milliseconds."},
    {"key", "Key to press."},
    {"text", "Text to enter."},
    {"includeNonInteractive",
     "Also nodes without action or label, for missing content (web pages). Raise maximumNodes with "
     "it."},
    {"maximumNodes", "Most nodes to return."},
    {"nodeId", "The node's id."},
    {"stateSignature", "Of the UI state."},
    {"direction", "down shows what is below."},
    {"timeoutMs", "Longest wait."},
    {"stableMs", "Unchanged so long is stable."},
    {"pollIntervalMs", "Time between looks."},
    {"includeFullState", "Also the whole UI state."},
    {"expectedPackageName", "App that should be in front."},
    {"includeSystem", "Also system apps."},
    {"packageName", "From quillmere_apps_list."},
    {"userId", "Android user."},
};

struct ToolDescription {
  std::string_view tool;
  std::string_view text;
};

/// Of tools for which a model needs less, or something else, than the catalogue says.
constexpr ToolDescription toolDescriptions[] = {
    {"quillmere.devices.list",
     "First step: list Android devices and choose a deviceSerial. If the device supports mirroring "
     "but has no active session, call session.start next."},
    {"quillmere.sessions.list",
     "Second step: list active mirror sessions. Without a usable Phone Screen session, call "
     "session.start before observe, input or UI tools."},
    {"quillmere.session.start",
     "Start or focus a visible Phone Screen mirror session. Needed before observe, input or UI "
     "tools when the device has none."},
    {"quillmere.screen.observe",
     "Return the state of the mirror session, without a picture unless includeImage=true. Use it "
     "to verify a start or an action; use ui.get_state for visible content."},
    {"quillmere.input.tap", "Tap a point of the mirror."},
    {"quillmere.input.swipe", "Swipe between two points of the mirror."},
    {"quillmere.input.key", "Press a navigation or editing key."},
    {"quillmere.input.text",
     "Enter text through the Quillmere IME, which must be active for the session."},
    {"quillmere.ui.get_state",
     "Return compact, redacted UI nodes of Phone Screen display 0. Use a node's id with "
     "stateSignature for node actions."},
    {"quillmere.ui.click_element", "Click a visible node of a recent UI state."},
    {"quillmere.ui.focus_element",
     "Focus an editable or input-candidate node of a recent UI state."},
    {"quillmere.ui.set_text",
     "Focus an editable or input-candidate node of a recent UI state, then enter text through the "
     "Quillmere IME."},
    {"quillmere.ui.scroll_element", "Swipe inside a scrollable node of a recent UI state."},
    {"quillmere.ui.wait_for_stable",
     "Wait until the UI tree of Phone Screen display 0 stops changing. Use it sparingly, after "
     "navigation or animation; else prefer ui.get_state or screen.observe. With the previous "
     "stateSignature it returns at once if nothing changed, else a compact uiDiff."},
    {"quillmere.app.launch",
     "Launch an app by packageName, with warnings if it is not in the app catalog or that can't be "
     "refreshed. Then prefer screen.observe or ui.get_state; use ui.wait_for_stable only while the "
     "page is still changing."},
};

/// Without the condition that a session or a device is given: some model interfaces refuse one at
/// a schema's top. The description says it instead.
JsonText inputSchema(const Tool& tool) {
  JsonText properties = JsonText::object();
  for (const Property& property : compatPropertiesOf(tool)) {
    properties.set(property.name, propertySchema(property));
  }
  JsonText schema{{"type", "object"}};
  schema.set("properties", std::move(properties));
  schema.set("additionalProperties", false);
  if (!tool.required.empty()) schema.set("required", JsonText::arrayOf(tool.required));
  return schema;
}

std::string description(const Tool& tool) {
  const auto* own = std::ranges::find(toolDescriptions, tool.name, &ToolDescription::tool);
  std::string text =
      compatSpelled(own == std::end(toolDescriptions) ? tool.description : own->text);
  if (contains(sessionTargetToolNames(), tool.name)) text += " Needs sessionId or deviceSerial.";
  return text;
}

JsonText annotations(const Tool& tool) {
  const Effect effect = tool.effect;
  const bool isDestructive = effect == Effect::mayDestroy || effect == Effect::mayDestroyRepeatable;
  const bool isIdempotent = effect != Effect::mayDestroy && effect != Effect::addsInput;
  return JsonText{{"title", tool.title},
                  {"readOnlyHint", changesNothing(tool)},
                  {"destructiveHint", isDestructive},
                  {"idempotentHint", isIdempotent},
                  {"openWorldHint", effect != Effect::readsNothing}};
}

}  // namespace

bool changesNothing(const Tool& tool) {
  return tool.effect == Effect::readsPhone || tool.effect == Effect::readsNothing;
}

std::vector<Property> compatPropertiesOf(const Tool& tool) {
  std::vector<Property> properties = propertiesOf(tool);
  for (Property& property : properties) {
    const auto* row = std::ranges::find_if(shortDescriptions, [&](const ShortDescription& each) {
      return each.property == property.name && (tool.fragments & each.fragments) == each.fragments;
    });
    if (row != std::end(shortDescriptions)) property.description = row->text;
    // One model interface refuses a list with this keyword, and the values are in `enum`.
    property.examples = {};
  }
  return properties;
}

JsonText compatTools() {
  // Made once; each response refers to it.
  static const auto& text = *new auto(std::make_shared<const std::string>([] {
    JsonText entries = JsonText::array();
    for (const Tool& tool : allTools()) {
      if (isHidden(tool)) continue;
      entries.add(JsonText{{"name", compatSpelled(tool.name)},
                           {"title", tool.title},
                           {"description", description(tool)},
                           {"inputSchema", inputSchema(tool)},
                           {"annotations", annotations(tool)}});
    }
    return entries.str();
  }()));
  return JsonText::ofJson(text);
}

}  // namespace quillmere
