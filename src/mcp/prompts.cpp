#include <algorithm>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "mcp/instructions.hpp"
#include "mcp/methods.hpp"
#include "platform/text.hpp"
#include "platform/uuid.hpp"
#include "protocol/mcp_error.hpp"

namespace quillmere {

namespace {

constexpr std::size_t maxArgumentCharacters = 16'384;

struct PromptArgument {
  std::string_view name;
  std::string_view description;
  bool required = false;
  /// The text to use when the argument is absent or null.
  std::string_view fallback;
};

constexpr PromptArgument taskArguments[] = {
    {.name = "task",
     .description = "The user's phone task.",
     .required = true,
     .fallback = "Complete the user's supervised phone task."},
};

constexpr PromptArgument smokeTestArguments[] = {
    {.name = "packageName",
     .description = "Android package name to launch.",
     .required = true,
     .fallback = "<package>"},
    {.name = "deviceSerial",
     .description = "Optional Android device serial.",
     .required = false,
     .fallback = "<auto>"},
};

std::string argumentText(const JsonObject& arguments, const PromptArgument& argument) {
  const auto text = arguments.findString(argument.name);
  return std::string(text ? text->view() : argument.fallback);
}

std::string concatenated(std::initializer_list<std::string_view> pieces) {
  return joined({pieces.begin(), pieces.size()}, "");
}

std::string taskText(const JsonObject& arguments, Spelling spelled) {
  const std::string task = argumentText(arguments, taskArguments[0]);
  return concatenated(
      {"Task: ", task, "\n\nUse Quillmere's Phone Screen MCP tools.\n",
       spelled(connectionInstructions), " Use taskId `", randomUuid(), "` and taskName `", task,
       "` on every Quillmere tool call for this task. ", spelled(workflowInstructions),
       " Structured UI tools, including stable UI wait, are available only for Phone Screen "
       "display 0 sessions. Use compact UI state by default; request includeNonInteractive=true "
       "when the actionable/labeled node list is insufficient, especially when WebView, browser, "
       "or webpage content is missing. After launching apps or triggering navigation on Phone "
       "Screen, use the stable UI wait tool before selecting nodes, then pass the returned "
       "stateSignature with the chosen nodeId for any node action. If a tool reports 「使用 AI "
       "操作微信很可能导致账号封锁，请向用户询问并确认是否继续？」, ask the user and retry only "
       "after explicit confirmation, passing the user's exact confirmation such as "
       "「我确认继续使用 AI 操作微信」 in userAcknowledgementText. Do not use generic ADB "
       "commands. Stop before payments, submissions, CAPTCHA, account/security changes, "
       "destructive actions, or sensitive data transmission unless the user takes over or confirms "
       "in Quillmere."});
}

std::string smokeTestText(const JsonObject& arguments, Spelling spelled) {
  return concatenated(
      {"Run a short Android smoke test for package ",
       argumentText(arguments, smokeTestArguments[0]), " on device ",
       argumentText(arguments, smokeTestArguments[1]), " using Phone Screen MCP control. ",
       spelled(connectionInstructions), " ", spelled(workflowInstructions),
       " Launch the app, wait for a stable UI only on Phone Screen display 0 sessions, pass "
       "stateSignature with nodeId for node actions, observe the screen after each action, and "
       "report the visible result with sessionId/displayId/userId evidence."});
}

struct Prompt {
  std::string_view name;
  std::string_view title;
  std::string_view description;
  std::span<const PromptArgument> arguments;
  std::string (*promptText)(const JsonObject& arguments, Spelling spelled);
};

constexpr Prompt prompts[] = {
    {.name = "phone_task_assistant",
     .title = "Supervised Phone Task",
     .description = "Use Quillmere to perform a user-described Android phone task with an explicit "
                    "device/session workflow and safety checkpoints.",
     .arguments = taskArguments,
     .promptText = taskText},
    {.name = "android_smoke_test",
     .title = "Android App Smoke Test",
     .description = "Launch an Android app through Quillmere, wait for stable UI, inspect the "
                    "visible screen, and report a short smoke-test result.",
     .arguments = smokeTestArguments,
     .promptText = smokeTestText},
};

const Prompt& promptDefinition(std::string_view name) {
  const auto* prompt = std::ranges::find(prompts, name, &Prompt::name);
  if (prompt == std::end(prompts)) throw errors::unknownPrompt(name);
  return *prompt;
}

void validatePromptArguments(const Prompt& prompt, const JsonObject& arguments) {
  // The first by name, not by place: the same arguments get the same message in any order.
  std::optional<std::string> firstUnknown;
  for (const JsonMember& given : arguments) {
    const JsonString key = given.key();
    const bool isDeclared = std::ranges::find(prompt.arguments, key.view(),
                                              &PromptArgument::name) != prompt.arguments.end();
    if (!isDeclared && (!firstUnknown || key.view() < *firstUnknown)) firstUnknown = key.view();
  }
  if (firstUnknown) throw errors::unsupportedPromptArgument(prompt.name, *firstUnknown);

  for (const PromptArgument& argument : prompt.arguments) {
    const auto value = arguments.find(argument.name);
    const auto text = value ? value->asString() : std::nullopt;
    const bool isEmpty = !value || (text && text->view().empty());
    if (argument.required && isEmpty)
      throw errors::missingPromptArgument(prompt.name, argument.name);
    // Null passes, even for a required argument: it asks for the fallback.
    if (!value || value->isNull()) continue;
    if (!text) throw errors::notAString(argument.name);
    if (text->hasMoreCharactersThan(maxArgumentCharacters)) {
      throw errors::tooLong(argument.name);
    }
  }
}

}  // namespace

MethodResult listPrompts(const JsonObject& /*params*/, const RequestContext& /*context*/) {
  JsonText list = JsonText::array();
  for (const Prompt& prompt : prompts) {
    JsonText arguments = JsonText::array();
    for (const PromptArgument& argument : prompt.arguments) {
      arguments.add(JsonText{{"name", argument.name},
                             {"description", argument.description},
                             {"required", argument.required}});
    }
    list.add(JsonText{{"name", prompt.name},
                      {"title", prompt.title},
                      {"description", prompt.description},
                      {"arguments", std::move(arguments)}});
  }
  return JsonText{{"prompts", std::move(list)}};
}

MethodResult getPrompt(const JsonObject& params, const RequestContext& context) {
  const auto name = params.findString("name");
  if (!name) throw errors::promptNameMissing();
  const JsonObject arguments = params.findObject("arguments").value_or(JsonObject());

  const Prompt& prompt = promptDefinition(name->view());
  validatePromptArguments(prompt, arguments);

  const JsonText content{{"type", "text"},
                         {"text", prompt.promptText(arguments, context.server.dialect.spelled)}};
  const JsonText message{{"role", "user"}, {"content", content}};
  return JsonText{{"description", prompt.description},
                  {"messages", JsonText::arrayOf(std::span(&message, 1))}};
}

}  // namespace quillmere
