// The handshake. It may be repeated: a client that starts over gets what it would get from a new
// server, and a handshake that fails leaves the one before it in force.
#include <memory>
#include <string>

#include "json/document.hpp"
#include "mcp/methods.hpp"
#include "protocol/mcp_error.hpp"
#include "protocol/server_info.hpp"

namespace quillmere {

namespace {

/// What the result holds besides the version.
std::shared_ptr<const JsonDocument> fixedMembers(const Form& form) {
  const JsonText fixedList{{"listChanged", false}};
  std::string instructions = form.spelled(connectionInstructions);
  instructions += " ";
  instructions += form.spelled(workflowInstructions);
  instructions += form.spelled(
      " Use only visible, policy-gated Phone Screen mirror sessions. Call quillmere.help with "
      "topic=quickstart or workflow for concise guidance.");
  const JsonText members{
      {"capabilities",
       JsonText{{"tools", fixedList}, {"resources", fixedList}, {"prompts", fixedList}}},
      {"serverInfo", JsonText{{"name", "quillmere"},
                              {"title", "Quillmere Phone Control"},
                              {"version", serverVersion}}},
      {"instructions", instructions},
  };
  return parseJson(members.str());
}

}  // namespace

JsonText initialize(const JsonObject& params, ServerState& state, const Form& form) {
  state.setNegotiatedProtocolVersion(
      std::string(negotiatedProtocolVersion(params.find("protocolVersion"))));
  state.setInitialized();
  JsonText result{{"protocolVersion", state.negotiatedProtocolVersion()}};
  result.setMembersOf(writtenOnce<fixedMembers>(form)->object());
  return result;
}

std::string_view negotiatedProtocolVersion(const std::optional<JsonValue>& requested) {
  if (!requested) return newestProtocolVersion;
  const auto version = requested->asString();
  if (!version) throw errors::protocolVersionNotAString();

  // Versions are dates, so their order as text is their order in time. The newest one that is not
  // newer than the client's is what the client is most likely to know.
  std::string_view chosen = oldestProtocolVersion;
  for (const std::string_view supported : Constants::supportedProtocolVersions) {
    if (supported <= version->view()) chosen = supported;
  }
  return chosen;
}

void requireInitialized(const ServerState& state, std::string_view method) {
  if (!state.isInitialized()) throw errors::notInitialized(method);
}

}  // namespace quillmere
