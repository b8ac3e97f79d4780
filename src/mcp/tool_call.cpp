// A tool call from its parameters to its result. Whatever is wrong with the call itself is found
// before the app is looked for, and is an error; what the app then refuses is a result, which the
// AI reads.
#include <optional>
#include <string>
#include <string_view>

#include "control/control_call.hpp"
#include "mcp/methods.hpp"
#include "protocol/mcp_error.hpp"
#include "results/help.hpp"
#include "results/tool_result.hpp"
#include "tools/arguments.hpp"

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

}  // namespace

JsonText callTool(const JsonObject& params, InFlightRequest& inFlight, const Form& form) {
  const auto [name, rawArguments] = toolArguments(params);
  const Tool* tool = form.findTool(name);
  if (tool == nullptr) throw errors::unknownTool(name);
  // `rewritten` is not used by name, but `arguments` may refer to its bytes.
  const auto [arguments, rewritten] = normalizeToolArguments(tool->name, rawArguments);
  validateSchemaArguments(*tool, form.spelled(tool->name), arguments);
  if (tool->toolToCommand.empty()) {
    const auto topic = arguments.findString("topic");
    return helpResult(topic ? std::optional(topic->view()) : std::nullopt, form);
  }

  const auto payload = callAppControl(tool->toolToCommand, arguments, inFlight);
  return toolResult(addGuidance(tool->name, arguments, payload->object(), form), form);
}

}  // namespace quillmere
