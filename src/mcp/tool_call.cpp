// A tool call from its parameters to its result. A fault in the call itself is found before we look
// for the app, and is an error. If the app refuses the call, that is a result, which the AI reads.
#include <new>
#include <optional>
#include <string>
#include <string_view>

#include "control/control_call.hpp"
#include "json/document.hpp"
#include "mcp/help.hpp"
#include "mcp/methods.hpp"
#include "protocol/mcp_error.hpp"
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

JsonText carryOut(const Tool& tool, const JsonObject& rawArguments, const RequestContext& context) {
  const Dialect& dialect = context.server.dialect;
  // We do not use `rewritten`, but `arguments` may refer to its bytes.
  const auto [arguments, rewritten] = dialect.takeArguments(tool, rawArguments);
  validateSchemaArguments(tool, dialect.spelled(tool.name), arguments);
  if (tool.toolToCommand.empty()) {
    const auto topic = arguments.findString("topic");
    // Parsed like an app response, since results are made from a parsed response.
    const auto help = parseJson(
        dialect.spelled(helpPayload(topic ? std::optional(topic->view()) : std::nullopt).str()));
    return dialect.showResult(help->object());
  }

  const auto appResponse = callAppControl(tool.toolToCommand, arguments, *context.inFlight);
  return dialect.showResult(
      addGuidance(tool.name, arguments, appResponse->object(), dialect.spelled));
}

}  // namespace

MethodResult listTools(const JsonObject& /*params*/, const RequestContext& context) {
  return JsonText{{"tools", context.server.dialect.listTools()}};
}

MethodResult callTool(const JsonObject& params, const RequestContext& context) {
  const Dialect& dialect = context.server.dialect;
  const auto [name, rawArguments] = toolArguments(params);
  const Tool* tool = dialect.findTool(name);
  if (tool == nullptr) throw errors::unknownTool(name);
  try {
    return carryOut(*tool, rawArguments, context);
  } catch (const std::bad_alloc&) {
    throw;
  } catch (...) {
    if (context.inFlight->isCancelled()) throw;
    if (auto shown = dialect.showFailure(*tool, currentFailure())) return shown;
    throw;
  }
}

}  // namespace quillmere
