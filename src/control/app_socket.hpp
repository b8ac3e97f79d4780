// The desktop app's control socket: where it may be, and how to connect to it. Functions that ask
// the file system throw `std::system_error` when a resource runs out, such as descriptors. It is
// then not known which app is the right one: a bundle that can't be looked at is still a bundle,
// and without it another app would come first.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/unix_socket.hpp"

namespace quillmere {

/// Absolute path of the running executable, symbolic links resolved. A relative argument zero, a
/// bare command name included, counts from the current directory. Thread-safe.
[[nodiscard]] std::string executableURL();

/// Identifier of the innermost app bundle around `executable`, an absolute path: the string under
/// CFBundleIdentifier in the Info.plist of the nearest folder called "Contents". Nothing when there
/// is no such folder, or its file can't be read as such. Reads the file anew each time.
/// Thread-safe.
[[nodiscard]] std::optional<std::string> bundledAppIdentifier(const std::string& executable);

/// The application group of the app with this bundle identifier, or nothing for another app.
[[nodiscard]] std::optional<std::string_view> preferredAppGroup(
    const std::optional<std::string>& bundleIdentifier);

/// The paths at which to look for the socket from inside the app `bundleIdentifier`, or from
/// outside any, best first, none twice: three to five of them. Does not look whether anything is
/// there. Thread-safe.
[[nodiscard]] std::vector<std::string> socketCandidates(
    const std::optional<std::string>& bundleIdentifier);

/// How long to wait for a connect that is under way, for each candidate.
inline constexpr std::chrono::milliseconds connectTimeout{3'000};
/// How long each send and each receive of a connected socket may take.
inline constexpr std::chrono::seconds transferTimeout{75};

/// Connects to the first candidate that takes the connection. Passes over candidates that do not
/// exist, and names those that exist and fail in the error. Blocks up to `connectTimeout` a
/// candidate. Thread-safe. Throws `MCPError` -32000, also when a resource runs out and so it is
/// not known which candidate is the right one.
[[nodiscard]] UnixSocket connectAppControlSocket();

/// Connects `socket`, a fresh one, to `path`, and makes it a blocking one. Returns the text of the
/// failure, empty when it is connected. Blocks up to `connectTimeout`.
[[nodiscard]] std::string connectUnixSocket(const UnixSocket& socket, const std::string& path);

}  // namespace quillmere
