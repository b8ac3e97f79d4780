#include "simulator/commands.hpp"

#include <algorithm>
#include <array>
#include <cstdio>
#include <functional>
#include <stdexcept>
#include <utility>

#include "platform/text.hpp"
#include "simulator/refusal.hpp"
#include "simulator/request_arguments.hpp"
#include "simulator/view_json.hpp"

namespace quillmere::simulator {

namespace {

constexpr std::size_t rememberedViews = 32;
constexpr std::int64_t defaultMaximumNodes = 80;

/// One call, and what most commands need.
struct Context {
  World& world;
  Call& call;
  WorldTime now;
  /// For commands of a session the phone that the request names; else null.
  MirroredDevice* target = nullptr;

  [[nodiscard]] const JsonObject& request() const { return call.request; }
  [[nodiscard]] WorldTime elapsed() const { return now - *call.startedAt; }
};

MirroredDevice& deviceWithSerial(World& world, const std::string& serial) {
  const auto found = std::ranges::find_if(
      world.devices, [&](const MirroredDevice& each) { return each.device->serial == serial; });
  if (found == world.devices.end()) {
    throw Refusal("deviceNotFound", "There is no device with the serial \"" + serial + "\".");
  }
  return *found;
}

MirroredDevice& onlineDevice(const Context& context) {
  MirroredDevice& device =
      deviceWithSerial(context.world, textArgument(context.request(), "deviceSerial"));
  if (!device.device->isOnline) {
    throw Refusal("deviceOffline", "The device " + std::string(device.device->serial) +
                                       " is offline. Connect it and try again.");
  }
  return device;
}

MirroredDevice& sessionTarget(World& world, const JsonObject& request) {
  const std::string serial = optionalText(request, "deviceSerial");
  if (const std::string id = optionalText(request, "sessionId"); !id.empty()) {
    const auto found = std::ranges::find(world.devices, id, &MirroredDevice::sessionId);
    if (found == world.devices.end()) {
      throw refusals::noSession("sessionNotFound", "No active session has this sessionId.", serial);
    }
    if (!serial.empty() && found->device->serial != serial) {
      throw Refusal("sessionMismatch", "This session mirrors another device than deviceSerial.");
    }
    return *found;
  }
  if (serial.empty()) throw refusals::invalidArgument("sessionId or deviceSerial", "given");
  MirroredDevice& device = deviceWithSerial(world, serial);
  if (device.sessionId.empty()) {
    throw refusals::noSession("noActiveSession", "The device " + serial + " has no active session.",
                              serial);
  }
  return device;
}

/// What the phone shows now, remembered as seen by the client.
View show(MirroredDevice& device, WorldTime now) {
  View view = viewOf(device.phone, now);
  std::erase_if(device.shownViews,
                [&](const View& shown) { return shown.signature == view.signature; });
  device.shownViews.push_back(view);
  if (device.shownViews.size() > rememberedViews) device.shownViews.pop_front();
  return view;
}

JsonText deviceJson(const MirroredDevice& each) {
  return {{"serial", each.device->serial},
          {"model", each.device->model},
          {"androidVersion", each.device->androidVersion},
          {"state", each.device->isOnline ? "online" : "offline"},
          {"supportsMirror", each.device->isOnline},
          {"hasActiveMirrorSessions", !each.sessionId.empty()}};
}

JsonText sessionJson(const MirroredDevice& each) {
  return {{"sessionId", each.sessionId},
          {"deviceSerial", each.device->serial},
          {"sessionKind", "phoneScreen"},
          {"displayId", 0},
          {"width", mirror.width * each.phone.scale},
          {"height", mirror.height * each.phone.scale}};
}

JsonText sessionsJson(const World& world, const std::string& serial) {
  JsonText sessions = JsonText::array();
  for (const MirroredDevice& each : world.devices) {
    if (each.sessionId.empty() || (!serial.empty() && each.device->serial != serial)) continue;
    sessions.add(sessionJson(each));
  }
  return sessions;
}

Turn answered(JsonText body) {
  Turn turn;
  turn.answer = std::move(body);
  return turn;
}

JsonText warningsOf(std::string_view warning) {
  return JsonText::arrayOf(std::span(&warning, 1));
}

/// The response to an action: what it did, a detail or a warning if there is one, and what the
/// screen shows afterwards.
JsonText actionAnswer(MirroredDevice& device, WorldTime now, const Outcome& outcome,
                      std::string_view key = {}, const JsonText& detail = {}) {
  JsonText action{{"message", outcome.message}};
  if (!key.empty()) action.set(key, detail);
  JsonText body{{"action", std::move(action)}, {"visibleState", visibleStateOf(show(device, now))}};
  if (!outcome.warning.empty()) body.set("warnings", warningsOf(outcome.warning));
  return body;
}

Turn acted(const Context& context, const Outcome& outcome) {
  return answered(actionAnswer(*context.target, context.now, outcome));
}

/// The node that the request names, if the client has seen the present screen.
VisibleNode requestedNode(const Context& context) {
  const std::string signature = textArgument(context.request(), "stateSignature");
  const std::int64_t id = wholeNumber(context.request(), "nodeId", 1, 2000);
  const View view = viewOf(context.target->phone, context.now);
  if (signature != view.signature) {
    throw Refusal("staleStateSignature",
                  "The screen has changed since this stateSignature was given. Read the UI state "
                  "again and use its nodeId and stateSignature.");
  }
  const auto node = std::ranges::find(view.nodes, id, &VisibleNode::id);
  if (node == view.nodes.end()) {
    throw Refusal("nodeNotFound", "No node of this screen has the nodeId " + std::to_string(id) +
                                      "; the last one is " + std::to_string(view.nodes.size()) +
                                      ".");
  }
  return *node;
}

VisibleNode requestedField(const Context& context) {
  VisibleNode node = requestedNode(context);
  if (!node.isEditable()) {
    throw Refusal("notEditable", "The node " + node.resourceId() + " takes no text.");
  }
  return node;
}

std::string textToType(const Context& context) {
  std::string text = textArgument(context.request(), "text");
  if (text.empty()) throw refusals::invalidArgument("text", "at least one character");
  return text;
}

Turn listDevices(Context& context) {
  const std::string serial = optionalText(context.request(), "deviceSerial");
  const bool includeOffline = flag(context.request(), "includeOffline", false);
  JsonText devices = JsonText::array();
  for (const MirroredDevice& each : context.world.devices) {
    if (!serial.empty() && each.device->serial != serial) continue;
    if (each.device->isOnline || includeOffline) devices.add(deviceJson(each));
  }
  return answered({{"devices", std::move(devices)}});
}

Turn listSessions(Context& context) {
  const std::string serial = optionalText(context.request(), "deviceSerial");
  return answered({{"sessions", sessionsJson(context.world, serial)}});
}

Turn startSession(Context& context) {
  MirroredDevice& device = onlineDevice(context);
  const bool isNew = device.sessionId.empty();
  if (isNew) {
    std::string number = std::to_string(++context.world.startedSessions);
    number.insert(0, 12 - std::min<std::size_t>(12, number.size()), '0');
    device.sessionId = "5E551011-0000-4000-8000-" + number;
  }
  const char* const done = isNew ? "Started" : "Focused";
  return answered(actionAnswer(device, context.now,
                               {std::string(done) + " the Phone Screen session of " +
                                std::string(device.device->model) + "."},
                               "session", sessionJson(device)));
}

Turn observeScreen(Context& context) {
  const bool includeImage = flag(context.request(), "includeImage", false);
  View view = show(*context.target, context.now);
  Turn turn =
      answered({{"session", sessionJson(*context.target)}, {"visibleState", visibleStateOf(view)}});
  if (includeImage) turn.picture = std::move(view);
  return turn;
}

/// A place on the phone's screen, in pixels of `mirror`.
double place(const Context& context, std::string_view key, int end) {
  const int scale = context.target->phone.scale;
  return coordinate(context.request(), key, end * scale) / scale;
}

Turn tap(Context& context) {
  const double x = place(context, "x", mirror.width);
  const double y = place(context, "y", mirror.height);
  return acted(context, touchAt(context.target->phone, x, y, context.now));
}

Turn swipeScreen(Context& context) {
  const double startX = place(context, "startX", mirror.width);
  const double startY = place(context, "startY", mirror.height);
  const double endX = place(context, "endX", mirror.width);
  const double endY = place(context, "endY", mirror.height);
  return acted(context, swipe(context.target->phone, startX, startY, endX, endY, context.now));
}

Turn key(Context& context) {
  const auto outcome =
      pressKey(context.target->phone, textArgument(context.request(), "key"), context.now);
  if (!outcome) throw refusals::invalidArgument("key", "one of the allowed key names");
  return acted(context, *outcome);
}

Turn text(Context& context) {
  const std::string typed = textToType(context);
  if (context.target->phone.focusedField.empty()) {
    throw Refusal("imeNotActive",
                  "The Quillmere IME is not active: no text field has the focus. Focus one with "
                  "quillmere.ui.focus_element or a tap.");
  }
  return acted(context, typeText(context.target->phone, typed));
}

Turn uiGetState(Context& context) {
  const bool includeNonInteractive = flag(context.request(), "includeNonInteractive", false);
  const std::int64_t most =
      wholeNumber(context.request(), "maximumNodes", 1, 2000, defaultMaximumNodes);
  const bool includeImage = flag(context.request(), "includeImage", false);
  View view = show(*context.target, context.now);
  Turn turn = answered(
      {{"visibleState", visibleStateOf(view)},
       {"uiState", uiStateOf(view, includeNonInteractive, static_cast<std::size_t>(most))}});
  const bool hasWebView = std::ranges::count(view.nodes, Role::webView, &VisibleNode::role) > 0;
  if (hasWebView && !includeNonInteractive) {
    turn.answer->set("warnings", warningsOf("The content of web pages is omitted. Set "
                                            "includeNonInteractive=true to see it."));
  }
  if (includeImage) turn.picture = std::move(view);
  return turn;
}

Turn uiClickElement(Context& context) {
  const VisibleNode node = requestedNode(context);
  if (!node.isClickable) {
    throw Refusal("notClickable", "The node " + node.resourceId() + " can't be clicked.");
  }
  return acted(context, touch(context.target->phone, node, context.now));
}

Turn uiFocusElement(Context& context) {
  return acted(context, focus(context.target->phone, requestedField(context)));
}

Turn uiSetText(Context& context) {
  const VisibleNode field = requestedField(context);
  const std::string replacement = textToType(context);
  focus(context.target->phone, field);
  return acted(context, replaceText(context.target->phone, replacement));
}

Turn uiScrollElement(Context& context) {
  constexpr std::pair<std::string_view, Direction> directions[] = {{"up", Direction::up},
                                                                   {"down", Direction::down},
                                                                   {"left", Direction::left},
                                                                   {"right", Direction::right}};
  const std::string name = textArgument(context.request(), "direction");
  const auto* direction =
      std::ranges::find(directions, name, &std::pair<std::string_view, Direction>::first);
  if (direction == std::end(directions)) {
    throw refusals::invalidArgument("direction", "up, down, left or right");
  }
  const VisibleNode node = requestedNode(context);
  if (!node.isScrollable()) {
    throw Refusal("notScrollable", "The node " + node.resourceId() + " can't be scrolled.");
  }
  return acted(context, scroll(context.target->phone, node, direction->second));
}

JsonText stableAnswer(const Context& context, bool isStable, bool isUnchanged) {
  const JsonObject& request = context.request();
  const std::string previous = optionalText(request, "stateSignature");
  MirroredDevice& device = *context.target;
  const auto before = std::ranges::find(device.shownViews, previous, &View::signature);
  JsonText diff;
  const bool isKnown = before != device.shownViews.end();
  if (isKnown) diff = uiDiffOf(*before, viewOf(device.phone, context.now));

  const View view = show(device, context.now);
  JsonText body{{"stable", isStable},
                {"unchanged", isUnchanged},
                {"waitedMs", context.elapsed().count()},
                {"visibleState", visibleStateOf(view)}};
  if (flag(request, "includeFullState", false) || (!isKnown && !isUnchanged)) {
    body.set("uiState", uiStateOf(view, flag(request, "includeNonInteractive", false),
                                  static_cast<std::size_t>(wholeNumber(
                                      request, "maximumNodes", 1, 2000, defaultMaximumNodes))));
  }
  if (isKnown) body.set("uiDiff", std::move(diff));
  return body;
}

Turn uiWaitForStable(Context& context) {
  const JsonObject& request = context.request();
  const WorldTime timeout(wholeNumber(request, "timeoutMs", 1, 30000, 2500));
  const WorldTime stable(wholeNumber(request, "stableMs", 250, 5000, 600));
  const WorldTime pollInterval(wholeNumber(request, "pollIntervalMs", 100, 2000, 150));
  const std::string expected = optionalText(request, "expectedPackageName");
  const std::string previous = optionalText(request, "stateSignature");

  Call& call = context.call;
  const View view = viewOf(context.target->phone, context.now);
  const bool isExpected = expected.empty() || view.packageName == expected;
  const bool isFirstLook = call.lastSignature.empty();
  if (isFirstLook && isExpected && previous == view.signature) {
    return answered(stableAnswer(context, true, true));
  }
  if (call.lastSignature != view.signature) {
    call.lastSignature = view.signature;
    call.unchangedSince = context.now;
  }
  if (isExpected && context.now - call.unchangedSince >= stable) {
    return answered(stableAnswer(context, true, previous == view.signature));
  }
  if (context.elapsed() >= timeout) {
    JsonText body = stableAnswer(context, false, previous == view.signature);
    body.set("warnings",
             warningsOf(isExpected ? "The screen was still changing when the time was up."
                                   : "Another package than expectedPackageName was in front when "
                                     "the time was up."));
    return answered(std::move(body));
  }
  return {.askAgainIn = std::min(pollInterval, timeout - context.elapsed())};
}

Turn wait(Context& context) {
  const WorldTime duration(wholeNumber(context.request(), "durationMs", 0, 10000, 500));
  if (context.elapsed() < duration) return {.askAgainIn = duration - context.elapsed()};
  return answered({{"sessions", sessionsJson(context.world, {})}});
}

Turn listApps(Context& context) {
  onlineDevice(context);
  const bool includeSystem = flag(context.request(), "includeSystem", true);
  JsonText apps = JsonText::array();
  for (const App& app : allApps()) {
    if (app.isSystem && !includeSystem) continue;
    apps.add({{"packageName", app.packageName},
              {"title", app.title},
              {"isSystem", app.isSystem},
              {"userId", 0}});
  }
  return answered({{"apps", std::move(apps)}});
}

Turn launchApp(Context& context) {
  MirroredDevice& device = onlineDevice(context);
  const std::string package = textArgument(context.request(), "packageName");
  const auto user = context.request().findNumber("userId");
  if (context.request().contains("userId") && (!user || user->integer() != 0)) {
    throw Refusal("userNotFound", "This phone has no other user than 0.");
  }
  const App* app = findApp(package);
  if (app == nullptr) {
    Refusal refusal("appNotFound", "The package " + package + " has nothing to launch.");
    refusal.besides.set("warnings",
                        warningsOf("The package is not in the refreshed app catalog; the launch "
                                   "was tried by its name alone."));
    throw refusal;
  }
  return answered(actionAnswer(device, context.now, launch(device.phone, *app, context.now),
                               "foregroundVerified", true));
}

Turn stopControl(Context& context) {
  context.world.isControlStopped = true;
  return answered({{"action", JsonText{{"message", "AI control is off until the app restarts."}}}});
}

Turn adbCommand(Context&) {
  throw Refusal("adbCommandDenied", "ADB commands are never run. The request has been audited.");
}

struct Command {
  std::string_view name;
  Turn (*run)(Context& context);
  /// Acts within a session that the request must name.
  bool needsSession = false;
  /// Changes something on a phone, so it is refused once control has been stopped.
  bool isAction = false;
};

constexpr Command commands[] = {
    {.name = "listDevices", .run = listDevices},
    {.name = "listSessions", .run = listSessions},
    {.name = "startSession", .run = startSession, .isAction = true},
    {.name = "observeScreen", .run = observeScreen, .needsSession = true},
    {.name = "tap", .run = tap, .needsSession = true, .isAction = true},
    {.name = "swipe", .run = swipeScreen, .needsSession = true, .isAction = true},
    {.name = "key", .run = key, .needsSession = true, .isAction = true},
    {.name = "text", .run = text, .needsSession = true, .isAction = true},
    {.name = "uiGetState", .run = uiGetState, .needsSession = true},
    {.name = "uiClickElement", .run = uiClickElement, .needsSession = true, .isAction = true},
    {.name = "uiFocusElement", .run = uiFocusElement, .needsSession = true, .isAction = true},
    {.name = "uiSetText", .run = uiSetText, .needsSession = true, .isAction = true},
    {.name = "uiScrollElement", .run = uiScrollElement, .needsSession = true, .isAction = true},
    {.name = "uiWaitForStable", .run = uiWaitForStable, .needsSession = true},
    {.name = "wait", .run = wait},
    {.name = "listApps", .run = listApps},
    {.name = "launchApp", .run = launchApp, .isAction = true},
    {.name = "stopControl", .run = stopControl},
    {.name = "adbCommand", .run = adbCommand},
};
static_assert(std::size(commands) == 19);

const Command* findCommand(std::string_view name) {
  const auto* command = std::ranges::find(commands, name, &Command::name);
  return command == std::end(commands) ? nullptr : command;
}

/// Refuses an action in an app that needs the user's acknowledgement, unless the request has it or
/// an earlier one had. An acknowledgement holds for the app until the simulator ends.
void checkAcknowledgement(const Context& context) {
  MirroredDevice& device = *context.target;
  const View view = viewOf(device.phone, context.now);
  const App* app = findApp(view.packageName);
  if (app == nullptr || app->acknowledgement.empty()) return;
  if (device.acknowledgedPackages.contains(app->packageName)) return;
  const std::string given = optionalText(context.request(), "userAcknowledgementText");
  if (trimmed(given) != app->acknowledgement) {
    throw refusals::acknowledgementRequired(*app, !given.empty());
  }
  device.acknowledgedPackages.insert(app->packageName);
}

Turn run(Context& context) {
  const Command* command = findCommand(textArgument(context.request(), "command"));
  if (command == nullptr) throw Refusal("unknownCommand", "There is no such command.");
  if (command->isAction && context.world.isControlStopped) {
    throw Refusal("controlStopped",
                  "AI control has been stopped. It is off until the app restarts.");
  }
  if (command->needsSession) {
    context.target = &sessionTarget(context.world, context.request());
    if (command->isAction) checkAcknowledgement(context);
  }
  return command->run(context);
}

/// Adds the members of one text to another.
void addAll(JsonText& text, const JsonText& members) {
  text.setMembersOf(parseJson(members.str())->object());
}

JsonText refusalAnswer(const Refusal& refusal) {
  JsonText body{{"error", JsonText{{"code", refusal.code}, {"message", refusal.what()}}}};
  addAll(body, refusal.besides);
  return body;
}

/// Adds the members that every response has.
JsonText finished(World& world, const JsonObject& request, bool ok, const JsonText& body) {
  JsonText answer = JsonText::object();
  if (const auto id = request.find("id")) answer.set("id", *id);
  answer.set("ok", ok);
  addAll(answer, body);
  std::array<char, 32> auditId{};
  std::snprintf(auditId.data(), auditId.size(), "audit-%06lld",
                static_cast<long long>(++world.givenAnswers));
  answer.set("auditId", auditId.data());
  return answer;
}

}  // namespace

World makeWorld(int scale) {
  World world;
  for (const Device& device : allDevices()) {
    world.devices.push_back({.device = &device, .phone = makePhone(scale)});
  }
  return world;
}

Turn takeTurn(World& world, Call& call, WorldTime now) {
  if (!call.startedAt) call.startedAt = now;
  Context context{.world = world, .call = call, .now = now};
  try {
    Turn turn = run(context);
    if (turn.answer) turn.answer = finished(world, call.request, true, *turn.answer);
    return turn;
  } catch (const Refusal& refusal) {
    return answered(finished(world, call.request, false, refusalAnswer(refusal)));
  }
}

JsonText failedAnswer(World& world, const JsonObject& request) {
  return finished(
      world, request, false,
      refusalAnswer({"simulatedFailure", "The simulator was asked to fail this command."}));
}

bool isCommand(std::string_view name) {
  return findCommand(name) != nullptr;
}

}  // namespace quillmere::simulator
