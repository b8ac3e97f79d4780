// The desktop app's control socket: where it may be, and how to connect to it. Functions that ask
// the file system throw `std::system_error` when a resource such as descriptors runs out. We then
// do not know which app is the right one: a bundle that can't be looked at is still a bundle, and
// ignoring it would put another app first.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/unix_socket.hpp"

namespace quillmere {

/// Absolute path of the running executable, symbolic links resolved. A relative argument zero, even
/// a bare command name, is resolved against the current directory. Thread-safe.
[[nodiscard]] std::string executableURL();

/// Identifier of the innermost app bundle around `executable`, an absolute path: the string under
/// CFBundleIdentifier in the Info.plist of the nearest folder called "Contents". Nothing when there
/// is no such folder, or its Info.plist can't be read or parsed. Reads the file each time.
/// Thread-safe.
[[nodiscard]] std::optional<std::string> bundledAppIdentifier(const std::string& executable);

/// The application group of the app with this bundle identifier, or nothing for an unknown app.
[[nodiscard]] std::optional<std::string_view> preferredAppGroup(
    const std::optional<std::string>& bundleIdentifier);

/// The paths at which to look for the socket, best first, none twice: three to five of them.
/// `bundleIdentifier` is that of the app that contains the server, if any. Does not check whether
/// the paths exist. Thread-safe.
[[nodiscard]] std::vector<std::string> socketCandidates(
    const std::optional<std::string>& bundleIdentifier);

/// How long to wait for each candidate's pending connect.
inline constexpr std::chrono::milliseconds connectTimeout{3'000};
/// How long each send and each receive of a connected socket may take.
inline constexpr std::chrono::seconds transferTimeout{75};

/// Connects to the first candidate that takes the connection. Skips candidates that do not exist;
/// its error names those that exist but fail. Blocks up to `connectTimeout` per candidate.
/// Thread-safe. Throws `MCPError` -32000, also when a resource runs out so that we can't know which
/// candidate is the right one.
[[nodiscard]] UnixSocket connectAppControlSocket();

/// Connects `socket`, a new one, to `path`, and makes it blocking. Returns the text of the failure,
/// or an empty one on success. Blocks up to `connectTimeout`.
[[nodiscard]] std::string connectUnixSocket(const UnixSocket& socket, const std::string& path);

}  // namespace quillmere
