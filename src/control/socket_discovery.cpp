#include "control/socket_discovery.hpp"

#include <algorithm>
#include <array>
#include <mutex>
#include <utility>

#include "platform/app_group.hpp"
#include "platform/file_system.hpp"
#include "platform/process.hpp"
#include "platform/property_list.hpp"

namespace quillmere {

namespace {

constexpr std::string_view debugAppGroup = "group.com.tallowbrook.wickfern.debug.shared";
constexpr std::string_view releaseAppGroup = "group.com.tallowbrook.wickfern.shared";

/// A developer's debug build goes before the installed app.
constexpr std::array appGroupIdentifiers = {debugAppGroup, releaseAppGroup};

struct BundleGroup {
  std::string_view bundleIdentifier;
  std::string_view appGroup;
};

constexpr BundleGroup appGroupByBundleIdentifier[] = {
    {"com.tallowbrook.wickfern.debug", debugAppGroup},
    {"com.tallowbrook.wickfern", releaseAppGroup},
};

constexpr std::string_view socketFileName = "qm-mcp.sock";

std::vector<std::string_view> groupsInOrder(const std::optional<std::string>& bundleIdentifier) {
  std::vector<std::string_view> groups(appGroupIdentifiers.begin(), appGroupIdentifiers.end());
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

/// `path` as seen from the current directory.
std::string absolutePath(std::string_view path) {
  return path.starts_with('/') ? std::string(path) : below(currentDirectory(), path);
}

}  // namespace

std::string executablePath() {
  // Kept for the name that it was resolved from: a running program's file does not move, and to
  // resolve its links, one system call a folder, took an eighth of the processor time of a call.
  struct Resolved {
    std::mutex lock;
    std::optional<std::string> _name;
    std::string _path;
  };
  static auto& resolved = *new Resolved;
  const std::lock_guard hold(resolved.lock);
  if (resolved._name != argumentZero()) {
    resolved._path = withLinksResolved(absolutePath(argumentZero()));
    resolved._name = argumentZero();
  }
  return resolved._path;
}

std::optional<std::string> bundledAppIdentifier(const std::string& executable) {
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
  const auto* row = std::ranges::find(appGroupByBundleIdentifier, *bundleIdentifier,
                                      &BundleGroup::bundleIdentifier);
  return row == std::end(appGroupByBundleIdentifier) ? std::nullopt : std::optional(row->appGroup);
}

std::vector<std::string> socketCandidates(const std::optional<std::string>& bundleIdentifier) {
  std::vector<std::string> candidates;
  const auto appendCandidate = [&](std::string_view folder) {
    std::string path = below(folder, socketFileName);
    if (std::ranges::find(candidates, path) == candidates.end()) {
      candidates.push_back(std::move(path));
    }
  };
  const std::string library = below(homeDirectory(), "Library");
  for (const std::string_view group : groupsInOrder(bundleIdentifier)) {
    if (const auto container = appGroupContainer(group)) appendCandidate(*container);
    appendCandidate(below(library, "Group Containers/").append(group));
  }
  appendCandidate(below(library, "Application Support/WickfernShared"));
  return candidates;
}

}  // namespace quillmere
