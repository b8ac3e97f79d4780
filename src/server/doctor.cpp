// A report for a person whose AI client says that it can't reach the phone. It uses the same
// functions as a call, so it finds the same socket.
#include "server/doctor.hpp"

#include <exception>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

#include "control/app_socket.hpp"
#include "platform/file_system.hpp"
#include "protocol/mcp_error.hpp"
#include "protocol/server_info.hpp"

namespace quillmere {

namespace {

template <typename Text>
JsonText textOrNull(const std::optional<Text>& text) {
  return text ? JsonText(*text) : nullptr;
}

/// The result of `ask`, or an empty one when a resource is missing, so that the report goes on.
template <typename Ask>
auto valueOrEmpty(Ask ask) -> decltype(ask()) {
  try {
    return ask();
  } catch (const std::system_error&) {
    return {};
  }
}

JsonText candidateReports(const std::optional<std::string>& bundleIdentifier) {
  JsonText reports = JsonText::array();
  for (const std::string& path : valueOrEmpty([&] { return socketCandidates(bundleIdentifier); })) {
    const PathKind kind = valueOrEmpty([&] { return kindOfPath(path); });
    reports.add(JsonText{{"path", path},
                         {"exists", kind != PathKind::nothing},
                         {"isSocket", kind == PathKind::socket}});
  }
  return reports;
}

/// Why the connection failed, or nothing if it succeeded.
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

JsonText doctorPayload() {
  const auto identifier = valueOrEmpty([] { return bundledAppIdentifier(executableURL()); });
  // Before the connect test: a connection may make an app that is ending remove its socket.
  JsonText candidates = candidateReports(identifier);
  const auto failure = connectFailure();
  return JsonText{
      {"serverVersion", serverVersion},
      {"supportedProtocolVersions", JsonText::arrayOf(Constants::supportedProtocolVersions)},
      {"bundledAppIdentifier", textOrNull(identifier)},
      {"preferredAppGroupIdentifier", textOrNull(preferredAppGroup(identifier))},
      {"socketCandidates", std::move(candidates)},
      {"socketReachable", !failure.has_value()},
      {"socketError", textOrNull(failure)},
  };
}

}  // namespace quillmere
