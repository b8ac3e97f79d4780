// The prompts: their list, their texts, and which arguments they refuse.
#include <gtest/gtest.h>

#include <regex>

#include "mcp/methods.hpp"
#include "support/json.hpp"
#include "support/snapshot.hpp"

namespace quillmere {
namespace {

/// The result with each random id replaced by the same word.
JsonObject masked(const JsonText& result) {
  const std::regex uuid("`[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}`");
  return json(std::regex_replace(result.str(), uuid, "`<uuid>`"));
}

TEST(Prompts, AreListedAndFilledWordForWord) {
  JsonText all{{"prompts/list", JsonText{{"prompts", promptList()}}}};
  constexpr std::pair<std::string_view, std::string_view> calls[] = {
      {"phone_task_assistant", R"({"task":" Order `lunch\" \n"})"},
      {"phone_task_assistant", R"({"task":null})"},
      {"android_smoke_test", R"({"packageName":"com.example.notes","deviceSerial":""})"},
      {"android_smoke_test", R"({"packageName":null})"},
  };
  for (const auto& [name, arguments] : calls) {
    const JsonText params{{"name", name}, {"arguments", JsonText::constant(arguments)}};
    all.set(std::string(name) + " " + std::string(arguments),
            masked(getPrompt(json(params.str()), serverForm)));
  }
  EXPECT_EQ(indentedJson(json(all.str()).asValue()) + "\n", snapshot("prompts.json"));
}

TEST(Prompts, GiveEachTaskAnIdOfItsOwn) {
  const JsonObject params = json(R"({"name":"phone_task_assistant","arguments":{"task":"t"}})");
  const JsonText first = getPrompt(params, serverForm);
  const JsonText second = getPrompt(params, serverForm);
  EXPECT_NE(first.str(), second.str());
  EXPECT_EQ(masked(first).text(), masked(second).text());
}

TEST(Prompts, RefuseArgumentsThatTheyDoNotDeclare) {
  const auto assistant = [](const std::string& arguments) {
    return R"({"name":"phone_task_assistant","arguments":)" + arguments + "}";
  };
  const auto task = [&](const std::string& text) {
    return assistant(R"({"task":")" + text + "\"}");
  };
  constexpr std::string_view noTask = "-32602 phone_task_assistant requires prompt argument: task";
  struct PromptCase {
    std::string_view name;
    std::string params;
    std::string_view failure;
  };
  const PromptCase cases[] = {
      {"no name", R"({"name":5})", "-32602 prompts/get requires params.name."},
      {"an unknown prompt comes before its arguments", R"({"name":"x","arguments":{"y":1}})",
       "-32602 Unknown prompt: x"},
      {"no arguments", R"({"name":"phone_task_assistant"})", noTask},
      {"arguments of another type are dropped", assistant("\"task\""), noTask},
      {"an unknown argument comes before a missing one", assistant(R"({"zeta":1,"alpha":null})"),
       "-32602 Unsupported prompt argument for phone_task_assistant: alpha"},
      {"an argument of the other prompt", assistant(R"({"task":"t","packageName":"p"})"),
       "-32602 Unsupported prompt argument for phone_task_assistant: packageName"},
      {"an empty required argument", task(""), noTask},
      {"a blank one passes", task(" "), ""},
      {"a number", assistant(R"({"task":5})"), "-32602 task must be a string."},
      {"an optional argument of a wrong type",
       R"({"name":"android_smoke_test","arguments":{"packageName":"p","deviceSerial":[]}})",
       "-32602 deviceSerial must be a string."},
      {"an optional argument of null passes",
       R"({"name":"android_smoke_test","arguments":{"packageName":"p","deviceSerial":null}})", ""},
      {"the longest", task(times(16'384, "👍🏽")), ""},
      {"one character more", task(times(16'385, "👍🏽")), "-32602 task is too long."},
  };
  for (const auto& [name, params, failure] : cases) {
    EXPECT_EQ(
        failureOf([&given = params] { static_cast<void>(getPrompt(json(given), serverForm)); }),
        failure)
        << name;
  }
}

}  // namespace
}  // namespace quillmere
