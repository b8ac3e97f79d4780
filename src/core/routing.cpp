#include "core/routing.hpp"

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>

#include "mcp/lifecycle.hpp"
#include "mcp/prompts.hpp"
#include "mcp/resources.hpp"
#include "mcp/tool_call.hpp"
#include "shared/mcp_error.hpp"
#include "tools/catalogue.hpp"

namespace quillmere {

namespace {

using Result = std::optional<JsonObject>;

/// One call of a method: what the client sent with it, and what it may work on.
struct Call {
  JsonObject params;
  ServerContext& server;
  InFlightRequest* inFlight;
};

Result ignore(Call& /*call*/) {
  return std::nullopt;
}
Result answerEmpty(Call& /*call*/) {
  return JsonObject();
}

Result cancelRequest(Call& call) {
  const JsonValue* requestID = call.params.find("requestId");
  if (requestID == nullptr || requestID->isNull()) return std::nullopt;
  if (const auto request = call.server.inFlightRequests.find(*requestID)) {
    const std::string* reason = call.params.findString("reason");
    request->cancel(reason != nullptr ? std::optional(*reason) : std::nullopt);
  }
  return std::nullopt;
}

Result initializeServer(Call& call) {
  return initialize(call.params, call.server.state);
}

Result shutDown(Call& call) {
  call.server.state.requestShutdown();
  return JsonObject();
}

/// A result with one member: lists are whole, so no cursor is read and no next page named.
Result listResult(std::string_view key, JsonArray list) {
  JsonObject result;
  result.set(key, std::move(list));
  return result;
}

Result listTools(Call& /*call*/) {
  return listResult("tools", visibleTools());
}
Result listResources(Call& /*call*/) {
  return listResult("resources", resourceList());
}
Result listPrompts(Call& /*call*/) {
  return listResult("prompts", promptList());
}

Result callTool(Call& call) {
  return callTool(std::move(call.params), call.inFlight);
}
Result readResource(Call& call) {
  return readResource(call.params, call.inFlight);
}
Result getPrompt(Call& call) {
  return getPrompt(call.params);
}

enum class Gate { open, needsInitialize };
enum class Thread { main, worker };

struct Method {
  std::string_view name;
  Gate gate;
  Thread thread;
  Result (*carryOut)(Call&);
};

constexpr Method methods[] = {
    {"notifications/initialized", Gate::open, Thread::main, ignore},
    {"notifications/cancelled", Gate::open, Thread::main, cancelRequest},
    {"initialize", Gate::open, Thread::main, initializeServer},
    {"ping", Gate::open, Thread::main, answerEmpty},
    {"shutdown", Gate::open, Thread::main, shutDown},
    {"tools/list", Gate::needsInitialize, Thread::main, listTools},
    {"tools/call", Gate::needsInitialize, Thread::worker, callTool},
    {"resources/list", Gate::needsInitialize, Thread::main, listResources},
    {"resources/read", Gate::needsInitialize, Thread::worker, readResource},
    {"prompts/list", Gate::needsInitialize, Thread::main, listPrompts},
    {"prompts/get", Gate::needsInitialize, Thread::main, getPrompt},
};

const Method* findMethod(std::string_view name) {
  const auto* method = std::ranges::find(methods, name, &Method::name);
  return method == std::end(methods) ? nullptr : method;
}

JsonObject takeParams(JsonObject& message) {
  JsonValue* params = message.find("params");
  if (params == nullptr || params->isNull()) return {};
  if (params->asObject() == nullptr) throw errors::paramsNotAnObject();
  return std::move(*params->asObject());
}

}  // namespace

std::optional<JsonObject> handleRequest(JsonObject message, ServerContext& server,
                                        InFlightRequest* inFlight) {
  const std::string* version = message.findString("jsonrpc");
  if (version == nullptr || *version != "2.0") throw errors::wrongJsonRpcVersion();
  const std::string* name = message.findString("method");
  if (name == nullptr) throw errors::methodNotAString();
  Call call{.params = takeParams(message), .server = server, .inFlight = inFlight};

  const Method* method = findMethod(*name);
  if (method == nullptr) {
    const JsonValue* id = message.find("id");
    if (id == nullptr || id->isNull()) return std::nullopt;
    throw errors::unknownMethod(*name);
  }
  if (method->gate == Gate::needsInitialize) requireInitialized(server.state, *name);
  return method->carryOut(call);
}

bool runsOnWorker(std::string_view name) {
  const Method* method = findMethod(name);
  return method != nullptr && method->thread == Thread::worker;
}

}  // namespace quillmere
