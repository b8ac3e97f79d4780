#include "doctor/doctor.hpp"

#include <exception>
#include <optional>
#include <string>
#include <utility>

#include "control/socket_connection.hpp"
#include "control/socket_discovery.hpp"
#include "platform/file_system.hpp"
#include "shared/mcp_error.hpp"
#include "shared/server_info.hpp"

namespace quillmere {

namespace {

template <typename Text>
JsonValue textOrNull(const std::optional<Text>& text) {
  return text ? JsonValue(*text) : JsonValue();
}

JsonArray candidateReports() {
  JsonArray reports;
  for (const std::string& path : socketCandidates()) {
    const bool exists = pathExists(path);
    reports.emplace_back(
        JsonObject{{"path", path}, {"exists", exists}, {"isSocket", exists && isSocket(path)}});
  }
  return reports;
}

/// Why no connection can be made, or nothing if one could.
std::optional<std::string> connectFailure() {
  try {
    static_cast<void>(connectAppControlSocket());
    return std::nullopt;
  } catch (const MCPError& error) {
    return error.message;
  } catch (const std::exception& failure) {
    return failure.what();
  }
}

}  // namespace

JsonObject doctorPayload() {
  // Before the connect test: a contact may make an app that is ending remove its socket.
  JsonArray candidates = candidateReports();
  const auto failure = connectFailure();
  const auto identifier = bundledAppIdentifier(executablePath());
  JsonObject report{{"serverVersion", serverVersion}};
  report.set("supportedProtocolVersions",
             JsonArray(supportedProtocolVersions.begin(), supportedProtocolVersions.end()));
  report.set("bundledAppIdentifier", textOrNull(identifier));
  report.set("preferredAppGroupIdentifier", textOrNull(preferredAppGroup(identifier)));
  report.set("socketCandidates", std::move(candidates));
  report.set("socketReachable", !failure.has_value());
  report.set("socketError", textOrNull(failure));
  return report;
}

}  // namespace quillmere
