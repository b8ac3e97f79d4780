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

using Result = std::optional<JsonText>;

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
  return JsonText::object();
}

Result cancelRequest(Call& call) {
  const auto requestID = call.params.find("requestId");
  if (!requestID || requestID->isNull()) return std::nullopt;
  if (const auto request = call.server.inFlightRequests.find(*requestID)) {
    const auto reason = call.params.findString("reason");
    request->cancel(reason ? std::optional(std::string(reason->view())) : std::nullopt);
  }
  return std::nullopt;
}

Result initializeServer(Call& call) {
  return initialize(call.params, call.server.state);
}

Result shutDown(Call& call) {
  call.server.state.requestShutdown();
  return JsonText::object();
}

/// A result with one member: lists are whole, so no cursor is read and no next page named. Written
/// at the first call, and sent as it is from then on.
template <JsonText (*list)()>
Result listResult(std::string_view key) {
  static const auto& text = *new std::string(JsonText{{key, list()}}.str());
  return JsonText::constant(text);
}

Result listTools(Call& /*call*/) {
  return listResult<visibleTools>("tools");
}
Result listResources(Call& /*call*/) {
  return listResult<resourceList>("resources");
}
Result listPrompts(Call& /*call*/) {
  return listResult<promptList>("prompts");
}

Result callTool(Call& call) {
  return callTool(call.params, call.inFlight);
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

JsonObject paramsOf(const JsonObject& message) {
  const auto params = message.find("params");
  if (!params || params->isNull()) return {};
  if (const auto object = params->asObject()) return *object;
  throw errors::paramsNotAnObject();
}

}  // namespace

std::optional<JsonText> handleRequest(const JsonObject& message, ServerContext& server,
                                      InFlightRequest* inFlight) {
  if (message.findString("jsonrpc") != "2.0") throw errors::wrongJsonRpcVersion();
  const auto name = message.findString("method");
  if (!name) throw errors::methodNotAString();
  Call call{.params = paramsOf(message), .server = server, .inFlight = inFlight};

  const Method* method = findMethod(name->view());
  if (method == nullptr) {
    const auto id = message.find("id");
    if (!id || id->isNull()) return std::nullopt;
    throw errors::unknownMethod(name->view());
  }
  if (method->gate == Gate::needsInitialize) requireInitialized(server.state, name->view());
  return method->carryOut(call);
}

bool runsOnWorker(std::string_view name) {
  const Method* method = findMethod(name);
  return method != nullptr && method->thread == Thread::worker;
}

}  // namespace quillmere
