// Where the desktop app's control socket may be. Nothing here touches a socket. What asks the file
// system throws `std::system_error` when that can't tell for want of a resource: a bundle that
// can't be looked at now is still a bundle, and outside of it another app would come first.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quillmere {

/// Absolute path of the running executable, symbolic links resolved. A relative argument zero, a
/// bare command name included, counts from the current directory. Thread-safe.
[[nodiscard]] std::string executablePath();

/// Identifier of the innermost app bundle around `executable`, an absolute path: the string under
/// CFBundleIdentifier in the Info.plist of the nearest folder called "Contents". Nothing when there
/// is no such folder, or its file can't be read as such. Reads the file anew each time.
/// Thread-safe.
[[nodiscard]] std::optional<std::string> bundledAppIdentifier(const std::string& executable);

/// The application group of the app with this bundle identifier, or nothing for another app.
[[nodiscard]] std::optional<std::string_view> preferredAppGroup(
    const std::optional<std::string>& bundleIdentifier);

/// The paths at which to look for the socket from inside the app `bundleIdentifier`, or outside of
/// any, best first, none twice: three to five of them. Whether anything is there is not looked at.
/// Thread-safe.
[[nodiscard]] std::vector<std::string> socketCandidates(
    const std::optional<std::string>& bundleIdentifier);

}  // namespace quillmere
