// Two desktop apps may run at a time, a debug build and the installed one, each with its own
// socket. A server that ships inside one of them tries that app's socket first. A call must fail
// rather than reach the other app just because the system ran short of something.
#include "control/app_socket.hpp"

#include <algorithm>
#include <array>
#include <system_error>
#include <utility>

#include "platform/file_system.hpp"
#include "platform/process.hpp"
#include "platform/property_list.hpp"
#include "platform/text.hpp"
#include "protocol/mcp_error.hpp"

namespace quillmere {

namespace Constants {

// Wickfern is the name that the desktop app's bundles, groups and folders carry.
constexpr std::string_view debugAppGroup = "group.com.tallowbrook.wickfern.debug.shared";
constexpr std::string_view releaseAppGroup = "group.com.tallowbrook.wickfern.shared";

struct BundleGroup {
  std::string_view bundleIdentifier;
  std::string_view appGroup;
};

/// A developer's debug build comes before the installed app.
constexpr std::array appGroupIdentifiers = {debugAppGroup, releaseAppGroup};

constexpr BundleGroup appGroupByBundleIdentifier[] = {
    {"com.tallowbrook.wickfern.debug", debugAppGroup},
    {"com.tallowbrook.wickfern", releaseAppGroup},
};

}  // namespace Constants

namespace {

constexpr std::string_view socketFileName = "qm-mcp.sock";

/// The groups to look in. The group of the app that contains the server comes first.
std::vector<std::string_view> groupsInOrder(const std::optional<std::string>& bundleIdentifier) {
  std::vector<std::string_view> groups(Constants::appGroupIdentifiers.begin(),
                                       Constants::appGroupIdentifiers.end());
  if (const auto preferred = preferredAppGroup(bundleIdentifier)) {
    std::stable_partition(groups.begin(), groups.end(),
                          [&](auto group) { return group == *preferred; });
  }
  return groups;
}

/// The path of `name` in `folder`.
std::string below(std::string_view folder, std::string_view name) {
  std::string path(folder);
  if (!path.ends_with('/')) path += '/';
  return path.append(name);
}

/// `path`, resolved against the current directory if it is relative.
std::string absolutePath(std::string_view path) {
  return path.starts_with('/') ? std::string(path) : below(currentDirectory(), path);
}

UnixSocket connectToFirst(const std::vector<std::string>& candidates) {
  std::string failures;
  for (const std::string& path : candidates) {
    const PathKind kind = kindOfPath(path);
    if (kind == PathKind::nothing) continue;

    // A failure does not end the search: the app may have left a stale socket in one place and
    // listen in another.
    std::string failure = "not a socket";
    if (kind == PathKind::socket) {
      auto socket = UnixSocket::create();
      if (!socket) throw errors::noControlSocket();
      failure = connectUnixSocket(*socket, path);
      if (failure.empty()) {
        socket->setTimeouts(transferTimeout);
        return std::move(*socket);
      }
    }
    if (!failures.empty()) failures += "; ";
    // A path may hold any bytes, and this text goes to the client.
    failures += withUtf8Repaired(path);
    failures += ": ";
    failures += failure;
  }
  if (failures.empty()) throw errors::controlSocketNotFound();
  throw errors::controlSocketUnreachable(failures);
}

}  // namespace

std::string executableURL() {
  // Resolved once: a running program's file does not move, and resolving its links, one system call
  // per folder, took an eighth of the processor time of a call. After a failure the next call tries
  // again. Never destroyed: workers may use it while the process ends.
  static const auto& path = *new std::string(withLinksResolved(absolutePath(argumentZero())));
  return path;
}

std::optional<std::string> bundledAppIdentifier(const std::string& executable) {
  // From the inside out, so that a helper's bundle inside an app's bundle wins.
  std::string_view folder = executable;
  do {
    const std::size_t slash = folder.rfind('/');
    if (slash == std::string_view::npos) return std::nullopt;
    folder = folder.substr(0, slash);
  } while (folder.substr(folder.rfind('/') + 1) != "Contents");
  const auto content = readFile(below(folder, "Info.plist"), maxPropertyListBytes);
  return content ? propertyListString(*content, "CFBundleIdentifier") : std::nullopt;
}

std::optional<std::string_view> preferredAppGroup(
    const std::optional<std::string>& bundleIdentifier) {
  if (!bundleIdentifier) return std::nullopt;
  const auto* row = std::ranges::find(Constants::appGroupByBundleIdentifier, *bundleIdentifier,
                                      &Constants::BundleGroup::bundleIdentifier);
  return row == std::end(Constants::appGroupByBundleIdentifier) ? std::nullopt
                                                                : std::optional(row->appGroup);
}

std::vector<std::string> socketCandidates(const std::optional<std::string>& bundleIdentifier) {
  std::vector<std::string> candidates;
  const auto appendCandidate = [&](std::string_view folder) {
    std::string path = below(folder, socketFileName);
    // The platform's folder for a group is often the same as the one below the home.
    if (std::ranges::find(candidates, path) == candidates.end()) {
      candidates.push_back(std::move(path));
    }
  };
  const std::string library = below(homeDirectory(), "Library");
  for (const std::string_view group : groupsInOrder(bundleIdentifier)) {
    if (const auto container = appGroupContainer(group)) appendCandidate(*container);
    appendCandidate(below(library, "Group Containers/").append(group));
  }
  // For an app without application groups.
  appendCandidate(below(library, "Application Support/WickfernShared"));
  return candidates;
}

UnixSocket connectAppControlSocket() {
  try {
    return connectToFirst(socketCandidates(bundledAppIdentifier(executableURL())));
  } catch (const std::system_error&) {
    // The call fails and does not try the next candidate, which may belong to another app.
    throw errors::noControlSocket();
  }
}

std::string connectUnixSocket(const UnixSocket& socket, const std::string& path) {
  if (path.size() > maxSocketPathBytes) return "The MCP control socket path is too long.";
  const auto failure = socket.connectTo(path, connectTimeout);
  if (!failure) return "";
  return failure->timedOut ? "Timed out connecting to Quillmere MCP control socket."
                           : std::generic_category().message(failure->error);
}

}  // namespace quillmere
