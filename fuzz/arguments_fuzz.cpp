// Any arguments, for every tool: normalising twice changes nothing more, every refusal is one of
// ours, and only known names leave the process.
#include <algorithm>
#include <set>

#include "control/control_call.hpp"
#include "fuzz_support.hpp"
#include "json/document.hpp"
#include "protocol/mcp_error.hpp"
#include "tools/arguments.hpp"
#include "tools/catalogue.hpp"

namespace {

void checkTool(const quillmere::Tool& tool, const quillmere::JsonObject& given) {
  using namespace quillmere;
  const auto [arguments, rewritten] = normalizeToolArguments(tool.name, given);
  demand(normalizeToolArguments(tool.name, arguments).object.text() == arguments.text());
  try {
    validateSchemaArguments(tool, tool.name, arguments);
    checkStringLimits(arguments);
  } catch (const MCPError& error) {
    demand(error.code == -32602 && !error.message.empty());
    return;
  }
  const auto request = parseJson(controlRequest(tool.toolToCommand, arguments).str());
  std::set<std::string> sent;
  for (const JsonMember member : request->object()) {
    const std::string key(member.key().view());
    demand(key == "id" || key == "command" || isControlField(key));
    demand(sent.insert(key).second);
    demand(!member.value().isNull() || key == "adbCommand");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace quillmere;
  try {
    const auto document = parseJson(textOf(data, size));
    if (const auto arguments = document->root().asObject()) {
      for (const Tool& tool : allTools()) checkTool(tool, *arguments);
    }
  } catch (const JsonError&) {
    return 0;
  }
  return 0;
}
