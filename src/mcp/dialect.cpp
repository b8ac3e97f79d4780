#include "mcp/dialect.hpp"

#include "results/tool_result.hpp"

namespace quillmere {

constinit const Dialect serverDialect{
    .spelled = catalogueSpelling,
    .findTool = findTool,
    .listTools = visibleTools,
    .takeArguments =
        [](const Tool& tool, const JsonObject& arguments) {
          return normalizeToolArguments(tool.name, arguments);
        },
    .showResult = toolResult,
    .showFailure = [](const Tool&, const MCPError&) { return std::optional<JsonText>(); },
};

}  // namespace quillmere
