// The table of methods is the one place that knows them all. What a row's function takes says where
// it runs: those that wait for the desktop app take an `InFlightRequest` and run on a worker, so
// that the main thread always reads on.
#include "server/method_table.hpp"

#include <algorithm>
#include <string>
#include <utility>

#include "mcp/methods.hpp"
#include "protocol/mcp_error.hpp"
#include "tools/form.hpp"

namespace quillmere {

namespace {

using Result = std::optional<JsonText>;

Result ignore(const JsonObject& /*params*/, ServerContext& /*server*/) {
  return std::nullopt;
}
Result answerEmpty(const JsonObject& /*params*/, ServerContext& /*server*/) {
  return JsonText::object();
}

Result cancelRequest(const JsonObject& params, ServerContext& server) {
  const auto requestID = params.find("requestId");
  // A notification is never answered, so a wrong or late one changes nothing and says nothing.
  if (!requestID || requestID->isNull()) return std::nullopt;
  if (const auto request = server.inFlightRequests.find(*requestID)) {
    const auto reason = params.findString("reason");
    request->cancel(reason ? std::optional(std::string(reason->view())) : std::nullopt);
  }
  return std::nullopt;
}

Result initializeServer(const JsonObject& params, ServerContext& server) {
  return initialize(params, server.state, server.form);
}

Result shutDown(const JsonObject& /*params*/, ServerContext& server) {
  server.state.requestShutdown();
  return JsonText::object();
}

/// A result with one member: lists are whole, so no cursor is read and no next page named. Written
/// at the first call, and sent as it is from then on.
template <JsonText (*list)()>
Result listResult(std::string_view key) {
  static const auto& text = *new std::string(JsonText{{key, list()}}.str());
  return JsonText::constant(text);
}

std::string toolsResult(const Form& form) {
  return JsonText{{"tools", visibleTools(form)}}.str();
}

Result listTools(const JsonObject& /*params*/, ServerContext& server) {
  return JsonText::constant(writtenOnce<toolsResult>(server.form));
}
Result listResources(const JsonObject& /*params*/, ServerContext& /*server*/) {
  return listResult<resourceList>("resources");
}
Result listPrompts(const JsonObject& /*params*/, ServerContext& /*server*/) {
  return listResult<promptList>("prompts");
}

Result listResourceTemplates(const JsonObject& /*params*/, ServerContext& /*server*/) {
  return JsonText{{"resourceTemplates", JsonText::array()}};
}

Result getPromptHere(const JsonObject& params, ServerContext& server) {
  return getPrompt(params, server.form);
}

using Gate = Method::Gate;

constexpr Method methods[] = {
    {"notifications/initialized", Gate::open, ignore},
    {"notifications/cancelled", Gate::open, cancelRequest},
    {"initialize", Gate::open, initializeServer},
    {"ping", Gate::open, answerEmpty},
    {"shutdown", Gate::open, shutDown},
    {"tools/list", Gate::needsInitialize, listTools},
    {"tools/call", Gate::needsInitialize, callTool},
    {"resources/list", Gate::needsInitialize, listResources},
    {"resources/read", Gate::needsInitialize, readResource},
    {"resources/templates/list", Gate::needsInitialize, listResourceTemplates,
     &Form::hasResourceTemplates},
    {"prompts/list", Gate::needsInitialize, listPrompts},
    {"prompts/get", Gate::needsInitialize, getPromptHere},
};

/// Checks all of the message except its method's name, and returns its `params`.
JsonObject checkedParams(const JsonObject& message) {
  if (message.findString("jsonrpc") != "2.0") throw errors::wrongJsonRpcVersion();
  if (!message.findString("method")) throw errors::methodNotAString();
  const auto params = message.find("params");
  if (!params || params->isNull()) return {};
  if (const auto object = params->asObject()) return *object;
  throw errors::paramsNotAnObject();
}

void passGate(const Method& method, const ServerState& state) {
  if (method.gate == Gate::needsInitialize) requireInitialized(state, method.name);
}

}  // namespace

const Method* findMethod(std::string_view name, const Form& form) {
  const auto* method = std::ranges::find(methods, name, &Method::name);
  if (method == std::end(methods)) return nullptr;
  return method->condition == nullptr || form.*method->condition ? method : nullptr;
}

std::optional<JsonText> handleRequest(const JsonObject& message, const std::optional<JsonValue>& id,
                                      const Method* method, ServerContext& server) {
  const JsonObject params = checkedParams(message);
  // Only now, so that what is wrong with the message itself is said first.
  if (method == nullptr) {
    if (!id) return std::nullopt;
    throw errors::unknownMethod(message.findString("method")->view());
  }
  passGate(*method, server.state);
  // Never a method for workers: with an id it was dispatched, and without one it was refused, since
  // none of them is a notification.
  return std::get<Method::OnMainThread>(method->carryOut)(params, server);
}

JsonText handleRequest(InFlightRequest& request, const Method& method,
                       const ServerContext& server) {
  const JsonObject params = checkedParams(request.message->object());
  passGate(method, server.state);
  return std::get<Method::OnWorker>(method.carryOut)(params, request, server.form);
}

}  // namespace quillmere
