#include "mcp/lifecycle.hpp"

#include <utility>

#include "shared/mcp_error.hpp"
#include "shared/server_info.hpp"

namespace quillmere {

namespace {

JsonObject initializeResult(const ServerState& state) {
  const JsonObject fixedList{{"listChanged", false}};
  std::string instructions(connectionInstructions);
  instructions += " ";
  instructions += workflowInstructions;
  instructions +=
      " Use only visible, policy-gated Phone Screen mirror sessions. Call quillmere.help with "
      "topic=quickstart or workflow for concise guidance.";
  return JsonObject{
      {"protocolVersion", state.negotiatedProtocolVersion()},
      {"capabilities",
       JsonObject{{"tools", fixedList}, {"resources", fixedList}, {"prompts", fixedList}}},
      {"serverInfo", JsonObject{{"name", "quillmere"},
                                {"title", "Quillmere Phone Control"},
                                {"version", serverVersion}}},
      {"instructions", std::move(instructions)},
  };
}

}  // namespace

JsonObject initialize(const JsonObject& params, ServerState& state) {
  state.setNegotiatedProtocolVersion(negotiatedProtocolVersion(params.find("protocolVersion")));
  state.setInitialized();
  return initializeResult(state);
}

std::string negotiatedProtocolVersion(const JsonValue* requested) {
  if (requested == nullptr) return std::string(newestProtocolVersion);
  const std::string* version = requested->asString();
  if (version == nullptr) throw errors::protocolVersionNotAString();

  std::string_view chosen = oldestProtocolVersion;
  for (const std::string_view supported : supportedProtocolVersions) {
    if (supported <= *version) chosen = supported;
  }
  return std::string(chosen);
}

void requireInitialized(const ServerState& state, std::string_view method) {
  if (!state.isInitialized()) throw errors::notInitialized(method);
}

}  // namespace quillmere
