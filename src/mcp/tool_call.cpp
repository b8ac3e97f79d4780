#include "mcp/tool_call.hpp"

#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "control/control_call.hpp"
#include "results/guidance.hpp"
#include "results/help.hpp"
#include "results/tool_result.hpp"
#include "shared/mcp_error.hpp"
#include "tools/catalogue.hpp"
#include "tools/normalisation.hpp"
#include "tools/validation.hpp"

namespace quillmere {

namespace {

struct ToolArguments {
  std::string name;
  JsonObject arguments;
};

ToolArguments toolArguments(JsonObject params) {
  const std::string* name = params.findString("name");
  if (name == nullptr) throw errors::toolNameMissing();
  JsonValue* arguments = params.find("arguments");
  if (arguments == nullptr || arguments->isNull()) return {*name, {}};
  if (arguments->asObject() == nullptr) throw errors::toolArgumentsNotAnObject();
  return {*name, std::move(*arguments->asObject())};
}

JsonObject help(const JsonObject& arguments) {
  const std::string* topic = arguments.findString("topic");
  return toolResult(
      helpPayload(topic != nullptr ? std::optional<std::string_view>(*topic) : std::nullopt));
}

}  // namespace

JsonObject callTool(JsonObject params, InFlightRequest* inFlight) {
  auto [name, rawArguments] = toolArguments(std::move(params));
  const JsonObject arguments = normalizeToolArguments(name, std::move(rawArguments));

  const Tool* tool = findTool(name);
  if (tool == nullptr) throw errors::unknownTool(name);
  validateSchemaArguments(*tool, arguments);
  if (tool->command.empty()) return help(arguments);

  JsonObject payload = callAppControl(tool->command, arguments, inFlight);
  return toolResult(addGuidance(name, arguments, std::move(payload)));
}

}  // namespace quillmere
