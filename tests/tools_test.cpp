// The catalogue, and what happens to arguments before they leave the process.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <map>
#include <set>

#include "control/control_call.hpp"
#include "protocol/mcp_error.hpp"
#include "support/json.hpp"
#include "support/snapshot.hpp"
#include "tools/arguments.hpp"
#include "tools/catalogue.hpp"

namespace quillmere {
namespace {

/// The names of all arguments of the listed tools, with their maximum lengths or 0.
std::map<std::string_view, std::size_t> listedArguments() {
  std::map<std::string_view, std::size_t> lengths;
  const auto tools = parseJson(visibleTools().str());
  const JsonArray list = *tools->root().asArray();
  for (const JsonValue entry : list) {
    const Tool& tool = *findTool(entry.asObject()->findString("name")->view());
    const JsonObject schema = *entry.asObject()->findObject("inputSchema");
    const JsonObject properties = *schema.findObject("properties");
    for (const JsonMember member : properties) {
      const Property& argument = *findProperty(tool, member.key().view());
      lengths.emplace(argument.name, argument.maxLength.value_or(0));
    }
  }
  return lengths;
}

TEST(Catalogue, IsListedWordForWord) {
  expectSnapshot("tools_list.txt", toolLines(visibleTools()));
}

TEST(Catalogue, GivesEachToolItsCommand) {
  std::string commands;
  for (const Tool& tool : allTools()) {
    EXPECT_EQ(findTool(tool.name), &tool);
    commands += std::string(tool.toolToCommand) + " ";
  }
  // In the order of the list. The first, help, has none.
  EXPECT_EQ(commands,
            " listDevices listSessions startSession observeScreen tap swipe key text uiGetState "
            "uiClickElement uiFocusElement uiSetText uiScrollElement uiWaitForStable wait listApps "
            "launchApp stopControl adbCommand ");
}

constexpr std::string_view pressKey = "quillmere.input.key";
constexpr std::string_view scroll = "quillmere.ui.scroll_element";

TEST(Normalisation, RewritesKeysAndDirectionsOnly) {
  struct NormalisationCase {
    /// Empty if it equals what was sent.
    std::string_view name, tool, sent, stored = {};
  };
  constexpr NormalisationCase cases[] = {
      {"blanks and a tab", pressKey, R"({"key":"\tPage-Down \n"})", R"({"key":"page_down"})"},
      {"the last of two keys", pressKey, R"({"key":"ESC","x": 1,"k\u0065y":"DEL"})",
       R"({"key":"delete","x":1})"},
      {"del", pressKey, R"({"key":"DEL"})", R"({"key":"delete"})"},
      {"esc", pressKey, R"({"key":"esc"})", R"({"key":"escape"})"},
      {"a Kelvin sign", pressKey, R"({"key":"bac\u212a"})", R"({"key":"back"})"},
      {"not the name of a key", pressKey, R"({"key":"space-bar"})", R"({"key":"space_bar"})"},
      {"a number", pressKey, R"({"key":7,"text":" A ","direction":"UP"})"},
      {"a direction", scroll, R"({"direction":" DOWN\t"})", R"({"direction":"down"})"},
      {"hyphens", scroll, R"({"direction":"Page-Up","key":"ESC"})",
       R"({"direction":"page-up","key":"ESC"})"},
      {"another tool", "quillmere.input.text", R"({"text":" A ","key":"ESC","direction":"UP"})"},
  };
  for (const auto& [name, tool, sent, stored] : cases) {
    const auto [object, rewritten] = normalizeToolArguments(tool, json(sent));
    EXPECT_EQ(object.text(), stored.empty() ? sent : stored) << name;
    EXPECT_EQ(rewritten == nullptr, stored.empty()) << name;
  }
}

TEST(Normalisation, AcceptsLooserSpellingsOfEachKey) {
  for (const std::string_view key : Constants::allowedKeyValues) {
    std::string hyphens(key);
    std::ranges::replace(hyphens, '_', '-');
    std::string inOneWord(key);
    std::erase(inOneWord, '_');
    std::string capitals(key);
    for (char& c : capitals) c = static_cast<char>(std::toupper(c));
    for (const std::string& spelling : {std::string(key), hyphens, inOneWord, capitals}) {
      const JsonObject sent = json(JsonText{{"key", spelling}}.str());
      const auto [object, rewritten] = normalizeToolArguments(pressKey, sent);
      EXPECT_EQ(object.findString("key")->view(), key) << spelling;
    }
  }
}

constexpr std::string_view help = "quillmere.help";
constexpr std::string_view tap = "quillmere.input.tap";
constexpr std::string_view swipe = "quillmere.input.swipe";
constexpr std::string_view enterText = "quillmere.input.text";
constexpr std::string_view observe = "quillmere.screen.observe";
constexpr std::string_view wait = "quillmere.wait";
constexpr std::string_view launch = "quillmere.app.launch";

std::string validationFailure(std::string_view tool, const JsonObject& arguments) {
  return failureOf([&] { validateSchemaArguments(*findTool(tool), tool, arguments); });
}

TEST(Validation, ChecksInAFixedOrder) {
  struct OrderCase {
    std::string_view name, tool, arguments;
    /// Without its code, which is always the same; empty if the arguments are valid.
    std::string_view failure = {};
  };
  constexpr OrderCase cases[] = {
      {"unknown comes before missing", tap, R"({"z":1})",
       "Unsupported argument for quillmere.input.tap: z"},
      {"the first unknown argument by name", tap, R"({"zeta":1,"alpha":1,"x":1})",
       "Unsupported argument for quillmere.input.tap: alpha"},
      {"an unknown argument that is null", tap, R"({"x":1,"y":2,"sessionId":"s","X":null})",
       "Unsupported argument for quillmere.input.tap: X"},
      {"help has no taskId", help, R"({"taskId":"t"})",
       "Unsupported argument for quillmere.help: taskId"},
      {"missing arguments in the schema's order", tap, R"({"sessionId":5})",
       "quillmere.input.tap requires argument: x"},
      {"null counts as missing", tap, R"({"x":null,"y":2,"sessionId":"s"})",
       "quillmere.input.tap requires argument: x"},
      {"the last of four", swipe, R"({"startX":1,"startY":1,"endX":1,"deviceSerial":"d"})",
       "quillmere.input.swipe requires argument: endY"},
      {"a bad value comes before the target", tap, R"({"x":1,"y":"2"})", "y must be a number."},
      {"the target comes last", tap, R"({"x":1,"y":2})",
       "quillmere.input.tap requires argument: deviceSerial or sessionId"},
      {"a device is a target", tap, R"({"x":1,"y":2,"deviceSerial":"d"})"},
      {"a null device is a target", observe, R"({"deviceSerial":null})"},
      {"null passes for an optional argument", observe,
       R"({"sessionId":null,"includeImage":null})"},
      {"the hidden tool is checked like any other", "quillmere.adb.command",
       R"({"deviceSerial":"d","command":"ls"})", "quillmere.adb.command requires argument: reason"},
  };
  for (const auto& [name, tool, arguments, failure] : cases) {
    EXPECT_EQ(validationFailure(tool, json(arguments)),
              failure.empty() ? "" : "-32602 " + std::string(failure))
        << name;
  }
}

TEST(Validation, ChecksEachValueByItsSchema) {
  /// Valid arguments. Each case replaces or adds one.
  const std::map<std::string_view, std::string_view> valid = {
      {help, "{}"},
      {tap, R"({"x":1,"y":2,"sessionId":"s"})"},
      {pressKey, R"({"key":"back","sessionId":"s"})"},
      {enterText, R"({"text":"t","sessionId":"s"})"},
      {observe, R"({"sessionId":"s"})"},
      {scroll, R"({"nodeId":1,"stateSignature":"s","direction":"up","sessionId":"s"})"},
      {wait, "{}"},
      {launch, R"({"deviceSerial":"d","packageName":"p"})"},
  };
  constexpr std::string_view passes;
  constexpr std::string_view below = "is below the minimum.";
  constexpr std::string_view above = "is above the maximum.";
  constexpr std::string_view notInteger = "must be an integer.";
  const auto quoted = [](const std::string& text) { return "\"" + text + "\""; };
  struct ValueCase {
    std::string_view tool, key;
    std::string value;
    std::string_view failure;
  };
  const ValueCase cases[] = {
      {wait, "durationMs", "-1", below},
      {wait, "durationMs", "0", passes},
      {wait, "durationMs", "10000", passes},
      {wait, "durationMs", "10001", above},
      {wait, "durationMs", "1.5", notInteger},
      {wait, "durationMs", "2.0", passes},
      {wait, "durationMs", "\"5\"", notInteger},
      {wait, "durationMs", "true", notInteger},
      {wait, "durationMs", "1e400", "must be finite."},
      {wait, "durationMs", "12345678901234567890123", above},
      {tap, "x", "-0.5", passes},
      {tap, "x", "-1e400", "must be finite."},
      {tap, "x", "true", "must be a number."},
      {launch, "userId", "-99999999999", passes},
      {observe, "includeImage", "false", passes},
      {observe, "includeImage", "1", "must be a boolean."},
      {observe, "deviceSerial", "{}", "must be a string."},
      {enterText, "text", "\"\"", "is too short."},
      {enterText, "text", quoted(times(16'384, "🇨🇳")), passes},
      {enterText, "text", quoted(times(16'385, "🇨🇳")), "is too long."},
      {enterText, "text", quoted(times(16'384, R"(\r\n)")), passes},
      {pressKey, "key", "\"space_bar\"",
       "must be one of: back, home, recents, enter, tab, delete, forward_delete, escape, dpad_up, "
       "dpad_down, dpad_left, dpad_right, dpad_center, page_up, page_down."},
      {scroll, "direction", "\"dpad_up\"", "must be one of: up, down, left, right."},
      {help, "topic", "\"Ui\"", "must be one of: quickstart, workflow, session, ui, key."},
  };
  for (const auto& [tool, key, value, failure] : cases) {
    const JsonObject arguments = json(valid.at(tool));
    EXPECT_EQ(validationFailure(tool, arguments), "");
    JsonText changed{{key, JsonText::ofJson(value)}};
    changed.setMembersOf(arguments, {{key}});
    EXPECT_EQ(validationFailure(tool, json(changed.str())),
              failure.empty() ? "" : "-32602 " + std::string(key) + " " + std::string(failure))
        << tool << " " << key << " " << value.substr(0, 40);
  }
}

TEST(ArgumentGuards, RepeatTheSchemasMaximumLengths) {
  const auto failure = [](std::string_view key, std::size_t characters) {
    const JsonText arguments{{key, times(characters, "🇨🇳")}};
    return failureOf([&] { checkStringLimits(json(arguments.str())); });
  };
  std::map<std::string_view, std::size_t> limits = {
      {"adbCommand", 4096}, {"command", 4096}, {"direction", 16}, {"reason", 2048}};
  limits.merge(listedArguments());
  std::erase_if(limits, [](const auto& limit) { return limit.second == 0; });
  EXPECT_EQ(limits.size(), 14);
  for (const auto& [key, limit] : limits) {
    EXPECT_EQ(failure(key, limit), "") << key;
    EXPECT_EQ(failure(key, limit + 1), "-32602 " + std::string(key) + " is too long.");
  }
  EXPECT_EQ(failure("topic", 100'000), "") << "not an argument of the desktop app";
  EXPECT_NO_THROW(checkStringLimits(json(R"({"text":5,"key":null,"taskName":["long"]})")));
}

TEST(ArgumentGuards, PassEveryArgumentExceptTheTopic) {
  std::set<std::string_view> passing = {"adbCommand", "reason"};
  for (const auto& [name, length] : listedArguments()) passing.insert(name);
  EXPECT_EQ(passing.erase("topic"), 1);
  EXPECT_EQ(passing.size(), 31);
  for (const std::string_view name : passing) EXPECT_TRUE(isControlField(name)) << name;
  for (const std::string_view name : {"topic", "id", "command", "Text", "bogus", ""}) {
    EXPECT_FALSE(isControlField(name)) << name;
  }
}

}  // namespace
}  // namespace quillmere
