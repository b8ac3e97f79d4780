#include "compat/dialect.hpp"

#include "compat/arguments.hpp"
#include "compat/failure.hpp"
#include "compat/names.hpp"
#include "compat/result.hpp"
#include "compat/tool_list.hpp"
#include "mcp/method_table.hpp"

namespace quillmere {

namespace {

MethodResult listResourceTemplates(const JsonObject& /*params*/,
                                   const RequestContext& /*context*/) {
  return JsonText{{"resourceTemplates", JsonText::array()}};
}

constexpr Method ownMethods[] = {
    // Some clients drop all resources without it.
    {"resources/templates/list", Method::Gate::needsInitialize, listResourceTemplates},
};

}  // namespace

constinit const Dialect compatDialect{
    .spelled = compatSpelled,
    .findTool = findCompatTool,
    .listTools = compatTools,
    .takeArguments = takeCompatArguments,
    .showResult = compatResult,
    .showFailure = showCompatFailure,
    .ownMethods = ownMethods,
};

}  // namespace quillmere
