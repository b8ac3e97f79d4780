// The handshake, and the messages about requests and the session. The handshake may be repeated: a
// client that starts over gets what it would get from a new server, and a handshake that fails
// leaves the one before it in force.
#include <string>

#include "mcp/instructions.hpp"
#include "mcp/methods.hpp"
#include "protocol/mcp_error.hpp"
#include "protocol/server_info.hpp"

namespace quillmere {

MethodResult initialize(const JsonObject& params, const RequestContext& context) {
  ServerState& state = context.server.state;
  state.setNegotiatedProtocolVersion(
      std::string(negotiatedProtocolVersion(params.find("protocolVersion"))));
  state.setInitialized();
  return initializeResult(state, context.server.dialect);
}

JsonText initializeResult(const ServerState& state, const Dialect& dialect) {
  const JsonText fixedList{{"listChanged", false}};
  std::string instructions(connectionInstructions);
  instructions += " ";
  instructions += workflowInstructions;
  instructions +=
      " Use only visible, policy-gated Phone Screen mirror sessions. Call quillmere.help with "
      "topic=quickstart or workflow for concise guidance.";
  return JsonText{
      {"protocolVersion", state.negotiatedProtocolVersion()},
      {"capabilities",
       JsonText{{"tools", fixedList}, {"resources", fixedList}, {"prompts", fixedList}}},
      {"serverInfo", JsonText{{"name", "quillmere"},
                              {"title", "Quillmere Phone Control"},
                              {"version", serverVersion}}},
      {"instructions", dialect.spelled(instructions)},
  };
}

std::string_view negotiatedProtocolVersion(const std::optional<JsonValue>& requested) {
  if (!requested) return newestProtocolVersion;
  const auto version = requested->asString();
  if (!version) throw errors::protocolVersionNotAString();

  // Versions are dates, so their order as text is their order in time. The client most likely knows
  // the newest one that is not newer than its own.
  std::string_view chosen = oldestProtocolVersion;
  for (const std::string_view supported : Constants::supportedProtocolVersions) {
    if (supported <= version->view()) chosen = supported;
  }
  return chosen;
}

void requireInitialized(const ServerState& state, std::string_view method) {
  if (!state.isInitialized()) throw errors::notInitialized(method);
}

MethodResult shutDown(const JsonObject& /*params*/, const RequestContext& context) {
  context.server.state.requestShutdown();
  return JsonText::object();
}

MethodResult cancelRequest(const JsonObject& params, const RequestContext& context) {
  const auto requestID = params.find("requestId");
  if (!requestID || requestID->isNull()) return std::nullopt;
  if (const auto request = context.server.inFlightRequests.find(*requestID)) {
    const auto reason = params.findString("reason");
    request->cancel(reason ? std::optional(std::string(reason->view())) : std::nullopt);
  }
  return std::nullopt;
}

}  // namespace quillmere
