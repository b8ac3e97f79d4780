#include <optional>
#include <string>
#include <string_view>

#include "control/control_call.hpp"
#include "mcp/methods.hpp"
#include "protocol/mcp_error.hpp"
#include "results/help.hpp"
#include "results/tool_result.hpp"
#include "tools/arguments.hpp"
#include "tools/catalogue.hpp"

namespace quillmere {

namespace {

struct ToolArguments {
  std::string name;
  JsonObject arguments;
};

ToolArguments toolArguments(const JsonObject& params) {
  const auto name = params.findString("name");
  if (!name) throw errors::toolNameMissing();
  const auto arguments = params.find("arguments");
  if (!arguments || arguments->isNull()) return {std::string(name->view()), {}};
  if (!arguments->asObject()) throw errors::toolArgumentsNotAnObject();
  return {std::string(name->view()), *arguments->asObject()};
}

JsonText help(const JsonObject& arguments) {
  const auto topic = arguments.findString("topic");
  return helpResult(topic ? std::optional(topic->view()) : std::nullopt);
}

}  // namespace

JsonText callTool(const JsonObject& params, InFlightRequest& inFlight) {
  const auto [name, rawArguments] = toolArguments(params);
  const auto [arguments, rewritten] = normalizeToolArguments(name, rawArguments);

  const Tool* tool = findTool(name);
  if (tool == nullptr) throw errors::unknownTool(name);
  validateSchemaArguments(*tool, arguments);
  if (tool->toolToCommand.empty()) return help(arguments);

  const auto payload = callAppControl(tool->toolToCommand, arguments, inFlight);
  return toolResult(addGuidance(name, arguments, payload->object()));
}

}  // namespace quillmere
