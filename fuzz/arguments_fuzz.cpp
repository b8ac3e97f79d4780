// Any arguments, for every tool: normalised once is normalised for good, a refusal is one of ours,
// and what passes leaves the process under known names only.
#include "control/control_call.hpp"
#include "fuzz_support.hpp"
#include "platform/json_parser.hpp"
#include "platform/json_writer.hpp"
#include "shared/mcp_error.hpp"
#include "tools/argument_guards.hpp"
#include "tools/catalogue.hpp"
#include "tools/normalisation.hpp"
#include "tools/validation.hpp"

namespace {

void checkTool(const quillmere::Tool& tool, const quillmere::JsonObject& given) {
  using namespace quillmere;
  const JsonObject arguments = normalizeToolArguments(tool.name, given);
  demand(compactJson(normalizeToolArguments(tool.name, arguments)) == compactJson(arguments));
  try {
    validateSchemaArguments(tool, arguments);
    checkStringLimits(arguments);
  } catch (const MCPError& error) {
    demand(error.code == -32602 && !error.message.empty());
    return;
  }
  for (const auto& [key, value] : controlRequest(tool.command, arguments)) {
    demand(key == "id" || key == "command" || isControlField(key));
    demand(!value.isNull() || key == "adbCommand");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace quillmere;
  try {
    const JsonValue value = parseJson(textOf(data, size));
    if (const JsonObject* arguments = value.asObject()) {
      for (const Tool& tool : allTools()) checkTool(tool, *arguments);
    }
  } catch (const JsonError&) {
    return 0;
  }
  return 0;
}
