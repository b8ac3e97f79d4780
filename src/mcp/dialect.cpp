#include "mcp/dialect.hpp"

#include <string>

#include "results/tool_result.hpp"

namespace quillmere {

constinit const Dialect serverDialect{
    .spelled = [](std::string_view text) { return std::string(text); },
    .findTool = findTool,
    .listTools = visibleTools,
    .showResult = toolResult,
};

}  // namespace quillmere
