#include "mcp/method_table.hpp"

#include <algorithm>

#include "mcp/methods.hpp"
#include "protocol/mcp_error.hpp"

namespace quillmere {

namespace {

MethodResult ignore(const JsonObject& /*params*/, const RequestContext& /*context*/) {
  return std::nullopt;
}

MethodResult ping(const JsonObject& /*params*/, const RequestContext& /*context*/) {
  return JsonText::object();
}

using Gate = Method::Gate;
constexpr auto worker = Method::RunsOn::worker;

constexpr Method methods[] = {
    {"notifications/initialized", Gate::open, ignore},
    {"notifications/cancelled", Gate::open, cancelRequest},
    {"initialize", Gate::open, initialize},
    {"ping", Gate::open, ping},
    {"shutdown", Gate::open, shutDown},
    {"tools/list", Gate::needsInitialize, listTools},
    {"tools/call", Gate::needsInitialize, callTool, worker},
    {"resources/list", Gate::needsInitialize, listResources},
    {"resources/read", Gate::needsInitialize, readResource, worker},
    {"prompts/list", Gate::needsInitialize, listPrompts},
    {"prompts/get", Gate::needsInitialize, getPrompt},
};

/// Checks the whole message except its method's name, and returns its `params`.
JsonObject checkedParams(const JsonObject& message) {
  if (message.findString("jsonrpc") != "2.0") throw errors::wrongJsonRpcVersion();
  if (!message.findString("method")) throw errors::methodNotAString();
  const auto params = message.find("params");
  if (!params || params->isNull()) return {};
  if (const auto object = params->asObject()) return *object;
  throw errors::paramsNotAnObject();
}

}  // namespace

const Method* findMethod(std::string_view name, const Dialect& dialect) {
  for (const std::span<const Method> rows :
       {std::span<const Method>(methods), dialect.ownMethods}) {
    const auto method = std::ranges::find(rows, name, &Method::name);
    if (method != rows.end()) return &*method;
  }
  return nullptr;
}

MethodResult handleRequest(const JsonObject& message, const Method* method,
                           const RequestContext& context) {
  const JsonObject params = checkedParams(message);
  // Only now, so that we report faults of the message itself first.
  if (method == nullptr) {
    if (!context.id) return std::nullopt;
    throw errors::unknownMethod(message.findString("method")->view());
  }
  if (method->gate == Gate::needsInitialize) {
    requireInitialized(context.server.state, method->name);
  }
  return method->carryOut(params, context);
}

}  // namespace quillmere
