// Texts, names and bounds here are what clients see, word for word. An argument that several tools
// share is written once, as a constant or in a fragment. Schemas and checks use the same rows.
#include "tools/catalogue.hpp"

#include <algorithm>
#include <memory>
#include <string>

#include "platform/text.hpp"

namespace quillmere {

namespace {

constexpr Property taskContextProperties[] = {
    {.name = "taskId",
     .description = "Stable ID for the user-visible phone task. Pass the same value on every tool "
                    "call for one task.",
     .maxLength = 512},
    {.name = "taskName",
     .description = "Short user-visible task name, for example: 为用户点中午的外卖.",
     .maxLength = 160},
};

constexpr Property sessionTargetProperties[] = {
    {.name = "sessionId", .description = "Active Quillmere mirror session UUID.", .maxLength = 512},
    {.name = "deviceSerial",
     .description =
         "Android device serial. Allowed instead of sessionId only when it has exactly one active "
         "session. Session-scoped tools require either deviceSerial or sessionId.",
     .maxLength = 512},
};

constexpr Property userAcknowledgementProperty[] = {
    {.name = "userAcknowledgementText",
     .description = "Required only after Quillmere reports that the current app needs explicit "
                    "user acknowledgement; pass the user's exact explicit confirmation, for "
                    "example: 我确认继续使用 AI 操作微信.",
     .maxLength = 512},
};

struct FragmentProperties {
  Fragment fragment;
  std::span<const Property> properties;
};

/// In the order in which a schema shows them.
constexpr FragmentProperties fragmentProperties[] = {
    {taskContext, taskContextProperties},
    {sessionTarget, sessionTargetProperties},
    {userAcknowledgement, userAcknowledgementProperty},
};

// Arguments that several tools declare alike.
constexpr Property deviceSerial = {.name = "deviceSerial", .maxLength = 512};
constexpr Property nodeId = {
    .name = "nodeId", .type = ArgumentType::integer, .minimum = 1, .maximum = 2000};
constexpr Property stateSignature = {.name = "stateSignature", .minLength = 1, .maxLength = 128};
constexpr Property text = {.name = "text", .minLength = 1, .maxLength = 16384};
constexpr Property maximumNodes = {.name = "maximumNodes",
                                   .type = ArgumentType::integer,
                                   .minimum = 1,
                                   .maximum = 2000,
                                   .defaultValue = 80};
constexpr Property includeNonInteractive = {
    .name = "includeNonInteractive",
    .type = ArgumentType::boolean,
    .description =
        "Set true when the compact actionable/labeled UI tree misses visible content, especially "
        "on WebView, browser, or webpage screens. Pair with a higher maximumNodes when you need a "
        "more complete hierarchy.",
    .defaultValue = false};

constexpr std::string_view keyExamples[] = {"back", "enter", "dpad_down"};
constexpr std::string_view directionExamples[] = {"down", "up"};

constexpr Property helpArguments[] = {
    {.name = "topic",
     .description = "Help topic. Use quickstart when a user pasted an Quillmere command, workflow "
                    "for task order, session when no mirror session exists, ui for compact UI "
                    "state guidance, or key for accepted key names.",
     .defaultValue = "quickstart",
     .allowed = Constants::helpTopics},
};

constexpr Property devicesListArguments[] = {
    deviceSerial,
    {.name = "includeOffline", .type = ArgumentType::boolean, .defaultValue = false},
};

constexpr Property deviceArguments[] = {
    deviceSerial,
};

constexpr Property screenObserveArguments[] = {
    {.name = "includeImage",
     .type = ArgumentType::boolean,
     .description = "When true, include a PNG screenshot as base64. Leave false for routine "
                    "verification to avoid large MCP responses.",
     .defaultValue = false},
};

constexpr Property inputTapArguments[] = {
    {.name = "x", .type = ArgumentType::number},
    {.name = "y", .type = ArgumentType::number},
};

constexpr Property inputSwipeArguments[] = {
    {.name = "startX", .type = ArgumentType::number},
    {.name = "startY", .type = ArgumentType::number},
    {.name = "endX", .type = ArgumentType::number},
    {.name = "endY", .type = ArgumentType::number},
    {.name = "durationMs",
     .type = ArgumentType::integer,
     .minimum = 80,
     .maximum = 1200,
     .defaultValue = 280},
};

constexpr Property inputKeyArguments[] = {
    {.name = "key",
     .maxLength = 512,
     .allowed = Constants::allowedKeyValues,
     .examples = keyExamples},
};

constexpr Property inputTextArguments[] = {
    text,
};

constexpr Property uiGetStateArguments[] = {
    {.name = "includeImage", .type = ArgumentType::boolean, .defaultValue = false},
    includeNonInteractive,
    maximumNodes,
};

constexpr Property nodeArguments[] = {
    nodeId,
    stateSignature,
};

constexpr Property uiSetTextArguments[] = {
    nodeId,
    stateSignature,
    text,
};

constexpr Property uiScrollElementArguments[] = {
    nodeId,
    stateSignature,
    {.name = "direction", .allowed = Constants::uiScrollDirections, .examples = directionExamples},
    {.name = "durationMs",
     .type = ArgumentType::integer,
     .minimum = 80,
     .maximum = 1200,
     .defaultValue = 320},
};

constexpr Property uiWaitForStableArguments[] = {
    {.name = "timeoutMs",
     .type = ArgumentType::integer,
     .minimum = 1,
     .maximum = 30000,
     .defaultValue = 2500},
    {.name = "stableMs",
     .type = ArgumentType::integer,
     .minimum = 250,
     .maximum = 5000,
     .defaultValue = 600},
    {.name = "pollIntervalMs",
     .type = ArgumentType::integer,
     .minimum = 100,
     .maximum = 2000,
     .defaultValue = 150},
    includeNonInteractive,
    {.name = "includeFullState", .type = ArgumentType::boolean, .defaultValue = false},
    maximumNodes,
    stateSignature,
    {.name = "expectedPackageName", .maxLength = 512},
};

constexpr Property waitArguments[] = {
    {.name = "durationMs",
     .type = ArgumentType::integer,
     .minimum = 0,
     .maximum = 10000,
     .defaultValue = 500},
};

constexpr Property appsListArguments[] = {
    deviceSerial,
    {.name = "includeSystem", .type = ArgumentType::boolean, .defaultValue = true},
};

constexpr Property appLaunchArguments[] = {
    deviceSerial,
    {.name = "packageName", .maxLength = 512},
    {.name = "userId", .type = ArgumentType::integer, .defaultValue = 0},
};

constexpr Property adbCommandArguments[] = {
    deviceSerial,
    {.name = "command", .maxLength = 4096},
    {.name = "timeoutMs",
     .type = ArgumentType::integer,
     .minimum = 1,
     .maximum = 30000,
     .defaultValue = 5000},
    {.name = "reason", .maxLength = 2048},
};

// Arguments that a call must give.
constexpr std::string_view aDevice[] = {"deviceSerial"};
constexpr std::string_view aPoint[] = {"x", "y"};
constexpr std::string_view twoPoints[] = {"startX", "startY", "endX", "endY"};
constexpr std::string_view aKey[] = {"key"};
constexpr std::string_view aText[] = {"text"};
constexpr std::string_view aNode[] = {"nodeId", "stateSignature"};
constexpr std::string_view aNodeAndText[] = {"nodeId", "stateSignature", "text"};
constexpr std::string_view aNodeAndDirection[] = {"nodeId", "stateSignature", "direction"};
constexpr std::string_view aDeviceAndPackage[] = {"deviceSerial", "packageName"};
constexpr std::string_view aDeviceCommandAndReason[] = {"deviceSerial", "command", "reason"};

constexpr Tool tools[] = {
    {.name = "quillmere.help",
     .title = "Quillmere MCP Help",
     .description = "Show concise usage guidance. Call this first if you are unsure how to "
                    "connect, choose a device, start a Phone Screen session, or read UI state.",
     .effect = Effect::readsNothing,
     .ownProperties = helpArguments},
    {.name = "quillmere.devices.list",
     .title = "List Android Devices",
     .description = "First step for most tasks: list Android devices known to Quillmere and choose "
                    "a deviceSerial. If a target device supports mirroring but has no active "
                    "session, call quillmere.session.start next.",
     .toolToCommand = "listDevices",
     .fragments = taskContext,
     .ownProperties = devicesListArguments},
    {.name = "quillmere.sessions.list",
     .title = "List Mirror Sessions",
     .description = "Second step for most tasks: list active Quillmere mirror sessions for the "
                    "chosen device. If this returns no usable Phone Screen session, call "
                    "quillmere.session.start with deviceSerial before observe/input/UI tools.",
     .toolToCommand = "listSessions",
     .fragments = taskContext,
     .ownProperties = deviceArguments},
    {.name = "quillmere.session.start",
     .title = "Start Phone Screen Session",
     .description = "Start or focus a visible Phone Screen mirror session for a connected Android "
                    "device. Use this before screen.observe, ui.get_state, or input tools whenever "
                    "sessions.list is empty or has no Phone Screen session for the device.",
     .toolToCommand = "startSession",
     .effect = Effect::changesView,
     .fragments = taskContext,
     .ownProperties = deviceArguments,
     .required = aDevice},
    {.name = "quillmere.screen.observe",
     .title = "Observe Screen",
     .description = "Return the current mirror session state. By default this is metadata-only to "
                    "keep responses small; set includeImage=true only when a PNG screenshot is "
                    "needed for pixel inspection. Use this after starting a session or action to "
                    "verify session/app state; use ui.get_state for structured visible content. "
                    "Requires an active session; call quillmere.session.start first if needed.",
     .toolToCommand = "observeScreen",
     .fragments = taskContext | sessionTarget,
     .ownProperties = screenObserveArguments},
    {.name = "quillmere.input.tap",
     .title = "Tap",
     .description =
         "Tap a point in mirror pixel coordinates. If Quillmere reports a user acknowledgement "
         "requirement, ask the user and retry with userAcknowledgementText.",
     .toolToCommand = "tap",
     .effect = Effect::mayDestroy,
     .fragments = taskContext | sessionTarget | userAcknowledgement,
     .ownProperties = inputTapArguments,
     .required = aPoint},
    {.name = "quillmere.input.swipe",
     .title = "Swipe",
     .description =
         "Swipe between two points in mirror pixel coordinates. If Quillmere reports a user "
         "acknowledgement requirement, ask the user and retry with userAcknowledgementText.",
     .toolToCommand = "swipe",
     .effect = Effect::mayDestroy,
     .fragments = taskContext | sessionTarget | userAcknowledgement,
     .ownProperties = inputSwipeArguments,
     .required = twoPoints},
    {.name = "quillmere.input.key",
     .title = "Send Key",
     .description =
         "Send an allowlisted navigation or editing key through the active mirror transport. Key "
         "names are case-insensitive; ENTER is normalized to enter. If Quillmere reports a user "
         "acknowledgement requirement, ask the user and retry with userAcknowledgementText.",
     .toolToCommand = "key",
     .effect = Effect::mayDestroy,
     .fragments = taskContext | sessionTarget | userAcknowledgement,
     .ownProperties = inputKeyArguments,
     .required = aKey},
    {.name = "quillmere.input.text",
     .title = "Input Text",
     .description = "Commit text through the Quillmere IME. Fails unless the IME is active for the "
                    "session. If Quillmere reports a user acknowledgement requirement, ask the "
                    "user and retry with userAcknowledgementText.",
     .toolToCommand = "text",
     .effect = Effect::mayDestroy,
     .fragments = taskContext | sessionTarget | userAcknowledgement,
     .ownProperties = inputTextArguments,
     .required = aText},
    {.name = "quillmere.ui.get_state",
     .title = "Get UI State",
     .description = "Return compact, redacted Android UI nodes for a Phone Screen display 0 "
                    "session. Use node id plus stateSignature for node actions. Set "
                    "includeNonInteractive=true with a higher maximumNodes when visible WebView, "
                    "browser, webpage, or other context is missing from the compact tree.",
     .toolToCommand = "uiGetState",
     .fragments = taskContext | sessionTarget,
     .ownProperties = uiGetStateArguments},
    {.name = "quillmere.ui.click_element",
     .title = "Click UI Element",
     .description = "Click a visible Android UI node by nodeId and stateSignature from a recent "
                    "Phone Screen display 0 UI state.",
     .toolToCommand = "uiClickElement",
     .effect = Effect::mayDestroy,
     .fragments = taskContext | sessionTarget | userAcknowledgement,
     .ownProperties = nodeArguments,
     .required = aNode},
    {.name = "quillmere.ui.focus_element",
     .title = "Focus UI Text Input",
     .description = "Focus an editable or input-candidate Android UI node by nodeId and "
                    "stateSignature in a Phone Screen display 0 session.",
     .toolToCommand = "uiFocusElement",
     .effect = Effect::changesView,
     .fragments = taskContext | sessionTarget | userAcknowledgement,
     .ownProperties = nodeArguments,
     .required = aNode},
    {.name = "quillmere.ui.set_text",
     .title = "Set UI Text",
     .description =
         "Focus an editable or input-candidate Android UI node by nodeId and stateSignature in a "
         "Phone Screen display 0 session, then commit text through Quillmere IME.",
     .toolToCommand = "uiSetText",
     .effect = Effect::mayDestroyRepeatable,
     .fragments = taskContext | sessionTarget | userAcknowledgement,
     .ownProperties = uiSetTextArguments,
     .required = aNodeAndText},
    {.name = "quillmere.ui.scroll_element",
     .title = "Scroll UI Element",
     .description = "Swipe inside a scrollable Android UI element in a Phone Screen display 0 "
                    "session. Direction describes viewport travel; down reveals lower content.",
     .toolToCommand = "uiScrollElement",
     .effect = Effect::addsInput,
     .fragments = taskContext | sessionTarget | userAcknowledgement,
     .ownProperties = uiScrollElementArguments,
     .required = aNodeAndDirection},
    {.name = "quillmere.ui.wait_for_stable",
     .title = "Wait For Stable UI",
     .description =
         "Poll the Phone Screen display 0 Android UI tree until it briefly stops changing. Use "
         "this sparingly after navigation or animation; prefer quillmere.ui.get_state or "
         "quillmere.screen.observe for ordinary post-action verification. Pass the previous "
         "stateSignature to fast-return when unchanged and to receive a compact uiDiff.",
     .toolToCommand = "uiWaitForStable",
     .fragments = taskContext | sessionTarget,
     .ownProperties = uiWaitForStableArguments},
    {.name = "quillmere.wait",
     .title = "Wait",
     .description = "Wait briefly and return current sessions.",
     .toolToCommand = "wait",
     .fragments = taskContext,
     .ownProperties = waitArguments},
    {.name = "quillmere.apps.list",
     .title = "List Apps",
     .description = "List launchable apps for a connected device, refreshing Quillmere's app "
                    "catalog when needed.",
     .toolToCommand = "listApps",
     .fragments = taskContext,
     .ownProperties = appsListArguments,
     .required = aDevice},
    {.name = "quillmere.app.launch",
     .title = "Launch App",
     .description =
         "Launch an app on the phone screen by packageName. Quillmere uses the launchable app "
         "catalog when available and falls back to a packageName launch with response warnings "
         "when catalog refresh fails or the package is absent from the refreshed catalog. After "
         "launching, prefer quillmere.screen.observe without image or quillmere.ui.get_state; use "
         "quillmere.ui.wait_for_stable only when the page is still visibly transitioning.",
     .toolToCommand = "launchApp",
     .effect = Effect::changesView,
     .fragments = taskContext | userAcknowledgement,
     .ownProperties = appLaunchArguments,
     .required = aDeviceAndPackage},
    {.name = "quillmere.control.stop",
     .title = "Stop AI Control",
     .description = "Disable AI MCP control inside Quillmere.",
     .toolToCommand = "stopControl",
     .effect = Effect::changesView,
     .fragments = taskContext},
    {.name = "quillmere.adb.command",
     .title = "Reserved ADB Command",
     .description = "Reserved developer-mode escape hatch. This build forwards the request for "
                    "audit and always denies execution.",
     .toolToCommand = "adbCommand",
     .effect = Effect::mayDestroy,
     .fragments = taskContext,
     .ownProperties = adbCommandArguments,
     .required = aDeviceCommandAndReason},
};

static_assert(std::size(tools) == 20);
static_assert(std::ranges::count(tools, std::string_view(), &Tool::toolToCommand) == 1);

/// Reserved: a client that knows it may call it, but we do not offer it to models.
constexpr std::string_view hiddenToolNames[] = {"quillmere.adb.command"};

constexpr auto namesOfSessionTools = [] {
  std::array<std::string_view, 11> names;
  auto* end = names.begin();
  for (const Tool& tool : tools) {
    if ((tool.fragments & sessionTarget) != 0) *end++ = tool.name;
  }
  if (end != names.end()) throw "the number of session tools has changed";
  return names;
}();

/// Calls `visit` with each argument of the tool, in the order of its schema.
template <typename Visit>
void forEachProperty(const Tool& tool, Visit visit) {
  for (const auto& [fragment, properties] : fragmentProperties) {
    if ((tool.fragments & fragment) == 0) continue;
    for (const Property& property : properties) visit(property);
  }
  for (const Property& property : tool.ownProperties) visit(property);
}

std::string_view schemaName(ArgumentType type) {
  switch (type) {
    case ArgumentType::string:
      return "string";
    case ArgumentType::boolean:
      return "boolean";
    case ArgumentType::integer:
      return "integer";
    case ArgumentType::number:
      break;
  }
  return "number";
}

/// Requires that a session or a device is given.
JsonText sessionTargetAnyOf() {
  JsonText anyOf = JsonText::array();
  for (const std::string_view target : {"sessionId", "deviceSerial"}) {
    anyOf.add(JsonText{{"required", JsonText::arrayOf(std::span(&target, 1))}});
  }
  return anyOf;
}

JsonText jsonSchema(const Tool& tool) {
  JsonText schema{{"type", "object"}};
  schema.set("properties", merged(tool));
  schema.set("additionalProperties", false);
  if (!tool.required.empty()) schema.set("required", JsonText::arrayOf(tool.required));
  if (contains(sessionTargetToolNames(), tool.name)) schema.set("anyOf", sessionTargetAnyOf());
  return schema;
}

}  // namespace

std::span<const Tool> allTools() {
  return tools;
}

const Tool* findTool(std::string_view name) {
  const auto* tool = std::ranges::find(tools, name, &Tool::name);
  return tool == std::end(tools) ? nullptr : tool;
}

bool isHidden(const Tool& tool) {
  return contains(hiddenToolNames, tool.name);
}

std::span<const std::string_view> sessionTargetToolNames() {
  return namesOfSessionTools;
}

const Property* findProperty(const Tool& tool, std::string_view name) {
  const Property* found = nullptr;
  forEachProperty(tool, [&](const Property& property) {
    if (property.name == name) found = &property;
  });
  return found;
}

std::vector<Property> propertiesOf(const Tool& tool) {
  std::vector<Property> properties;
  forEachProperty(tool, [&](const Property& property) { properties.push_back(property); });
  return properties;
}

JsonText propertySchema(const Property& property) {
  JsonText schema = JsonText::object();
  schema.set("type", schemaName(property.type));
  if (!property.description.empty()) schema.set("description", property.description);
  if (property.minLength) schema.set("minLength", *property.minLength);
  if (property.maxLength) schema.set("maxLength", *property.maxLength);
  if (property.minimum) schema.set("minimum", *property.minimum);
  if (property.maximum) schema.set("maximum", *property.maximum);
  if (const bool* flag = std::get_if<bool>(&property.defaultValue)) schema.set("default", *flag);
  if (const auto* whole = std::get_if<std::int64_t>(&property.defaultValue))
    schema.set("default", *whole);
  if (const auto* string = std::get_if<std::string_view>(&property.defaultValue))
    schema.set("default", *string);
  if (!property.allowed.empty()) schema.set("enum", JsonText::arrayOf(property.allowed));
  if (!property.examples.empty()) schema.set("examples", JsonText::arrayOf(property.examples));
  return schema;
}

JsonText merged(const Tool& tool) {
  JsonText properties = JsonText::object();
  for (const Property& property : propertiesOf(tool)) {
    properties.set(property.name, propertySchema(property));
  }
  return properties;
}

JsonText visibleTools() {
  // Made once; each response refers to it.
  static const auto& list = *new auto(std::make_shared<const std::string>([] {
    JsonText entries = JsonText::array();
    for (const Tool& tool : tools) {
      if (isHidden(tool)) continue;
      entries.add(JsonText{{"name", tool.name},
                           {"title", tool.title},
                           {"description", tool.description},
                           {"inputSchema", jsonSchema(tool)}});
    }
    return entries.str();
  }()));
  return JsonText::ofJson(list);
}

}  // namespace quillmere
