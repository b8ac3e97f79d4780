// The catalogue, and what becomes of arguments before they leave the process.
#include <gtest/gtest.h>

#include <map>
#include <set>

#include "shared/mcp_error.hpp"
#include "support/json.hpp"
#include "support/snapshot.hpp"
#include "tools/argument_guards.hpp"
#include "tools/catalogue.hpp"
#include "tools/normalisation.hpp"
#include "tools/validation.hpp"

namespace quillmere {
namespace {

/// Calls `visit` with each argument of each tool.
template <typename Visit>
void forEachArgument(Visit visit) {
  const auto visitAll = [&](const Tool& tool, const JsonObject& schema) {
    for (const auto& [key, value] : *schema.findObject("properties")) {
      visit(tool, *findProperty(tool, key));
    }
  };
  for (const JsonValue& entry : visibleTools()) {
    const JsonObject& tool = *entry.asObject();
    visitAll(*findTool(*tool.findString("name")), *tool.findObject("inputSchema"));
  }
}

TEST(Catalogue, IsListedWordForWord) {
  EXPECT_TRUE(matchesSnapshot(JsonObject{{"tools", visibleTools()}}, "tools_list.json"));
}

TEST(Catalogue, GivesEachToolItsCommand) {
  constexpr std::pair<std::string_view, std::string_view> commands[] = {
      {"quillmere.help", ""},
      {"quillmere.devices.list", "listDevices"},
      {"quillmere.sessions.list", "listSessions"},
      {"quillmere.session.start", "startSession"},
      {"quillmere.screen.observe", "observeScreen"},
      {"quillmere.input.tap", "tap"},
      {"quillmere.input.swipe", "swipe"},
      {"quillmere.input.key", "key"},
      {"quillmere.input.text", "text"},
      {"quillmere.ui.get_state", "uiGetState"},
      {"quillmere.ui.click_element", "uiClickElement"},
      {"quillmere.ui.focus_element", "uiFocusElement"},
      {"quillmere.ui.set_text", "uiSetText"},
      {"quillmere.ui.scroll_element", "uiScrollElement"},
      {"quillmere.ui.wait_for_stable", "uiWaitForStable"},
      {"quillmere.wait", "wait"},
      {"quillmere.apps.list", "listApps"},
      {"quillmere.app.launch", "launchApp"},
      {"quillmere.control.stop", "stopControl"},
      {"quillmere.adb.command", "adbCommand"},
  };
  for (const auto& [name, command] : commands) {
    ASSERT_NE(findTool(name), nullptr) << name;
    EXPECT_EQ(findTool(name)->command, command);
  }
  EXPECT_EQ(findTool("quillmere.input"), nullptr);
  EXPECT_EQ(findTool("Quillmere.wait"), nullptr);
}

TEST(Normalisation, RewritesKeysAndDirectionsOnly) {
  struct NormalisationCase {
    std::string_view name, tool, sent, stored;
  };
  constexpr std::string_view key = "quillmere.input.key";
  constexpr std::string_view scroll = "quillmere.ui.scroll_element";
  const NormalisationCase cases[] = {
      {"capitals", key, R"({"key":"ENTER"})", R"({"key":"enter"})"},
      {"blanks and a hyphen", key, R"({"key":" Page-Down\n"})", R"({"key":"page_down"})"},
      {"a tab", key, R"({"key":"\tback\t"})", R"({"key":"back"})"},
      {"two hyphenated words", key, R"({"key":"Dpad-Center"})", R"({"key":"dpad_center"})"},
      {"a canonical name", key, R"({"key":"forward_delete"})", R"({"key":"forward_delete"})"},
      {"an alias in capitals", key, R"({"key":"ForwardDelete"})", R"({"key":"forward_delete"})"},
      {"del", key, R"({"key":"DEL"})", R"({"key":"delete"})"},
      {"esc", key, R"({"key":"esc"})", R"({"key":"escape"})"},
      {"dpadup", key, R"({"key":"dpadup"})", R"({"key":"dpad_up"})"},
      {"dpaddown", key, R"({"key":"dpaddown"})", R"({"key":"dpad_down"})"},
      {"dpadleft", key, R"({"key":"dpadleft"})", R"({"key":"dpad_left"})"},
      {"dpadright", key, R"({"key":"dpadright"})", R"({"key":"dpad_right"})"},
      {"dpadcenter", key, R"({"key":"dpadcenter"})", R"({"key":"dpad_center"})"},
      {"pageup", key, R"({"key":"pageup"})", R"({"key":"page_up"})"},
      {"pagedown", key, R"({"key":"pagedown"})", R"({"key":"page_down"})"},
      {"a Kelvin sign", key, R"({"key":"bac\u212a"})", R"({"key":"back"})"},
      {"a capital I with dot", key, R"({"key":"\u0130"})", "{\"key\":\"i\u0307\"}"},
      {"no key's name", key, R"({"key":"space-bar"})", R"({"key":"space_bar"})"},
      {"hyphens alone", key, R"({"key":"--"})", R"({"key":"__"})"},
      {"the empty string", key, R"({"key":""})", R"({"key":""})"},
      {"a number", key, R"({"key":7})", R"({"key":7})"},
      {"null", key, R"({"key":null})", R"({"key":null})"},
      {"no key", key, R"({"text":" A "})", R"({"text":" A "})"},
      {"a direction", scroll, R"({"direction":" DOWN\t"})", R"({"direction":"down"})"},
      {"a direction keeps hyphens and has no aliases", scroll, R"({"direction":"Page-Up"})",
       R"({"direction":"page-up"})"},
      {"all else", scroll, R"({"key":"ESC","stateSignature":" S "})",
       R"({"key":"ESC","stateSignature":" S "})"},
      {"a direction of the key tool", key, R"({"direction":"UP"})", R"({"direction":"UP"})"},
      {"another tool", "quillmere.input.text", R"({"text":" A ","key":"ESC","direction":"UP"})",
       R"({"text":" A ","key":"ESC","direction":"UP"})"},
      {"an unknown tool", "quillmere.INPUT.key", R"({"key":"ESC"})", R"({"key":"ESC"})"},
  };
  for (const auto& [name, tool, sent, stored] : cases) {
    EXPECT_EQ(compactJson(normalizeToolArguments(tool, json(sent))), stored) << name;
  }
}

struct ValidationCase {
  std::string_view name;
  std::string_view tool;
  std::string arguments;
  /// Without its code, which is always the same; empty when the arguments are valid.
  std::string_view failure = {};
};

/// {"key": "value", ...more}
std::string with(std::string_view key, std::string_view value, std::string_view more = "") {
  return "{\"" + std::string(key) + "\":\"" + std::string(value) + "\"" + std::string(more) + "}";
}

constexpr std::string_view help = "quillmere.help";
constexpr std::string_view tap = "quillmere.input.tap";
constexpr std::string_view swipe = "quillmere.input.swipe";
constexpr std::string_view pressKey = "quillmere.input.key";
constexpr std::string_view enterText = "quillmere.input.text";
constexpr std::string_view observe = "quillmere.screen.observe";
constexpr std::string_view getState = "quillmere.ui.get_state";
constexpr std::string_view click = "quillmere.ui.click_element";
constexpr std::string_view scroll = "quillmere.ui.scroll_element";
constexpr std::string_view waitStable = "quillmere.ui.wait_for_stable";
constexpr std::string_view wait = "quillmere.wait";
constexpr std::string_view launch = "quillmere.app.launch";
constexpr std::string_view adb = "quillmere.adb.command";

const ValidationCase orderOfChecks[] = {
    {"an unknown tool", "quillmere.input", "{}", "Unknown Quillmere tool: quillmere.input"},
    {"an unknown argument comes before a missing one", tap, R"({"z":1})",
     "Unsupported argument for quillmere.input.tap: z"},
    {"of unknown arguments the first in order is named", tap, R"({"zeta":1,"alpha":1,"x":1})",
     "Unsupported argument for quillmere.input.tap: alpha"},
    {"capitals sort before small letters", tap, R"({"alpha":1,"Zeta":1})",
     "Unsupported argument for quillmere.input.tap: Zeta"},
    {"an unknown argument that is null", tap, R"({"x":1,"y":2,"sessionId":"s","z":null})",
     "Unsupported argument for quillmere.input.tap: z"},
    {"names are compared with case", tap, R"({"X":1})",
     "Unsupported argument for quillmere.input.tap: X"},
    {"help takes no taskId", help, R"({"taskId":"t"})",
     "Unsupported argument for quillmere.help: taskId"},
    {"the first missing argument is named", tap, "{}", "quillmere.input.tap requires argument: x"},
    {"missing arguments go by the schema's order", tap, R"({"y":1})",
     "quillmere.input.tap requires argument: x"},
    {"the second missing argument", tap, R"({"x":1})", "quillmere.input.tap requires argument: y"},
    {"null counts as missing", tap, R"({"x":null,"y":2,"sessionId":"s"})",
     "quillmere.input.tap requires argument: x"},
    {"the last of four", swipe, R"({"startX":1,"startY":1,"endX":1,"deviceSerial":"d"})",
     "quillmere.input.swipe requires argument: endY"},
    {"a bad value comes before the target", tap, R"({"x":1,"y":"2"})", "y must be a number."},
    {"the target comes last", tap, R"({"x":1,"y":2})",
     "quillmere.input.tap requires argument: deviceSerial or sessionId"},
    {"either target will do", tap, R"({"x":1,"y":2,"deviceSerial":"d"})"},
    {"a target of null is one", observe, R"({"sessionId":null})"},
    {"a device of null is one", observe, R"({"deviceSerial":null})"},
    {"an empty target is one", observe, R"({"sessionId":""})"},
    {"null passes for an optional argument", observe, R"({"sessionId":"s","includeImage":null})"},
    {"a list needs no target", "quillmere.devices.list", "{}"},
    {"a start needs a device by its own rule", "quillmere.session.start", "{}",
     "quillmere.session.start requires argument: deviceSerial"},
    {"the hidden tool is checked like any", adb, R"({"deviceSerial":"d","command":"ls"})",
     "quillmere.adb.command requires argument: reason"},
};

const ValidationCase numbers[] = {
    {"the least", wait, R"({"durationMs":0})"},
    {"the most", wait, R"({"durationMs":10000})"},
    {"too little", wait, R"({"durationMs":-1})", "durationMs is below the minimum."},
    {"too much", wait, R"({"durationMs":10001})", "durationMs is above the maximum."},
    {"a fraction", wait, R"({"durationMs":1.5})", "durationMs must be an integer."},
    {"a whole number with a fraction", wait, R"({"durationMs":2.0})"},
    {"a whole number with an exponent", wait, R"({"durationMs":5e0})"},
    {"digits in a string", wait, R"({"durationMs":"5"})", "durationMs must be an integer."},
    {"true is no integer", wait, R"({"durationMs":true})", "durationMs must be an integer."},
    {"past a float's range", wait, R"({"durationMs":1e400})", "durationMs must be finite."},
    {"past 64 bits", wait, R"({"durationMs":12345678901234567890123})",
     "durationMs is above the maximum."},
    {"a swipe's least", swipe,
     R"({"startX":0,"startY":0,"endX":0,"endY":0,"sessionId":"s","durationMs":80})"},
    {"a swipe too short", swipe,
     R"({"startX":0,"startY":0,"endX":0,"endY":0,"sessionId":"s","durationMs":79})",
     "durationMs is below the minimum."},
    {"a swipe's most", swipe,
     R"({"startX":0,"startY":0,"endX":0,"endY":0,"sessionId":"s","durationMs":1200})"},
    {"a swipe too long", swipe,
     R"({"startX":0,"startY":0,"endX":0,"endY":0,"sessionId":"s","durationMs":1201})",
     "durationMs is above the maximum."},
    {"no node 0", click, R"({"nodeId":0,"stateSignature":"s","sessionId":"s"})",
     "nodeId is below the minimum."},
    {"the last node", click, R"({"nodeId":2000,"stateSignature":"s","sessionId":"s"})"},
    {"no node 2001", click, R"({"nodeId":2001,"stateSignature":"s","sessionId":"s"})",
     "nodeId is above the maximum."},
    {"too many nodes", getState, R"({"sessionId":"s","maximumNodes":2001})",
     "maximumNodes is above the maximum."},
    {"all limits of a wait, from below", waitStable,
     R"({"sessionId":"s","timeoutMs":1,"stableMs":250,"pollIntervalMs":100,"maximumNodes":1})"},
    {"all limits of a wait, from above", waitStable,
     R"({"sessionId":"s","timeoutMs":30000,"stableMs":5000,"pollIntervalMs":2000})"},
    {"coordinates have no limits", tap, R"({"x":-0.5,"y":1e300,"sessionId":"s"})"},
    {"coordinates are finite", tap, R"({"x":-1e400,"y":1,"sessionId":"s"})", "x must be finite."},
    {"true is no number", tap, R"({"x":true,"y":1,"sessionId":"s"})", "x must be a number."},
    {"an array is no number", tap, R"({"x":[1],"y":1,"sessionId":"s"})", "x must be a number."},
    {"a user has no limits", launch,
     R"({"deviceSerial":"d","packageName":"p","userId":-99999999999})"},
    {"a string is no boolean", observe, R"({"sessionId":"s","includeImage":"true"})",
     "includeImage must be a boolean."},
    {"1 is no boolean", observe, R"({"sessionId":"s","includeImage":1})",
     "includeImage must be a boolean."},
    {"false is one", observe, R"({"sessionId":"s","includeImage":false})"},
};

const ValidationCase strings[] = {
    {"a number is no string", enterText, R"({"text":5,"sessionId":"s"})", "text must be a string."},
    {"an object is no string", observe, R"({"sessionId":{}})", "sessionId must be a string."},
    {"no text", enterText, R"({"text":"","sessionId":"s"})", "text is too short."},
    {"the longest text, in flags", enterText,
     with("text", times(16'384, "🇨🇳"), R"(,"sessionId":"s")")},
    {"a flag too many", enterText, with("text", times(16'385, "🇨🇳"), R"(,"sessionId":"s")"),
     "text is too long."},
    {"line ends count once", enterText,
     with("text", times(16'384, R"(\r\n)"), R"(,"sessionId":"s")")},
    {"letters with marks count once", enterText,
     with("text", times(16'384, "e\u0301"), R"(,"sessionId":"s")")},
    {"a signature of no character", click, R"({"nodeId":1,"stateSignature":"","sessionId":"s"})",
     "stateSignature is too short."},
    {"the longest signature", click,
     with("stateSignature", times(128, "s"), R"(,"nodeId":1,"sessionId":"s")")},
    {"a signature too long", click,
     with("stateSignature", times(129, "s"), R"(,"nodeId":1,"sessionId":"s")"),
     "stateSignature is too long."},
    {"no key's name", pressKey, R"({"key":"space_bar","sessionId":"s"})",
     "key must be one of: back, home, recents, enter, tab, delete, forward_delete, escape, "
     "dpad_up, "
     "dpad_down, dpad_left, dpad_right, dpad_center, page_up, page_down."},
    {"too long comes before one of", pressKey, with("key", times(513, "k"), R"(,"sessionId":"s")"),
     "key is too long."},
    {"no direction", scroll,
     R"({"nodeId":1,"stateSignature":"s","direction":"dpad_up","sessionId":"s"})",
     "direction must be one of: up, down, left, right."},
    {"no topic", help, R"({"topic":"Quickstart"})",
     "topic must be one of: quickstart, workflow, session, ui, key."},
    {"a topic", help, R"({"topic":"ui"})"},
};

TEST(Validation, RefusesWhatTheSchemaDoesNotAllow) {
  const std::pair<std::string_view, std::span<const ValidationCase>> tables[] = {
      {"order of checks", orderOfChecks}, {"numbers", numbers}, {"strings", strings}};
  for (const auto& [table, cases] : tables) {
    for (const auto& [name, tool, arguments, failure] : cases) {
      const std::string expected = failure.empty() ? "" : "-32602 " + std::string(failure);
      EXPECT_EQ(failureOf([&] { validateSchemaArguments(tool, json(arguments)); }), expected)
          << table << ": " << name;
    }
  }
}

TEST(ArgumentGuards, RepeatTheSchemasLongestLengths) {
  const auto failure = [](std::string_view key, std::size_t characters) {
    return failureOf([&] { checkStringLimits({{std::string(key), times(characters, "🇨🇳")}}); });
  };
  const auto expectLimit = [&](std::string_view key, std::size_t limit) {
    EXPECT_EQ(failure(key, limit), "") << key;
    EXPECT_EQ(failure(key, limit + 1), "-32602 " + std::string(key) + " is too long.");
  };
  std::map<std::string_view, std::size_t> limits = {
      {"adbCommand", 4096}, {"command", 4096}, {"direction", 16}, {"reason", 2048}};
  forEachArgument([&](const Tool&, const Property& argument) {
    if (argument.maxLength) limits.emplace(argument.name, *argument.maxLength);
  });
  EXPECT_EQ(limits.size(), 14);
  for (const auto& [key, limit] : limits) expectLimit(key, limit);

  EXPECT_EQ(failure("topic", 100'000), "") << "not an argument of the desktop app";
  EXPECT_NO_THROW(checkStringLimits(json(R"({"text":5,"key":null,"taskName":["long"]})")));
}

TEST(ArgumentGuards, LetEveryArgumentPassButThoseThatStayHere) {
  std::set<std::string_view> names = {"adbCommand", "command", "reason"};
  forEachArgument([&](const Tool&, const Property& argument) { names.insert(argument.name); });
  std::size_t passing = 0;
  for (const std::string_view name : names) {
    EXPECT_EQ(isControlField(name), name != "topic" && name != "command") << name;
    if (isControlField(name)) ++passing;
  }
  EXPECT_EQ(passing, 31);
  for (const std::string_view name : {"id", "", "X", "taskid", "arguments"}) {
    EXPECT_FALSE(isControlField(name)) << name;
  }
}

}  // namespace
}  // namespace quillmere
