// The few questions that the program asks of the file system. All are thread-safe. Each throws
// `std::system_error` when it lacks a resource to find out: no descriptor, no memory, a failing
// device, an interruption. A path that can't be looked at for that reason is not absent.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace quillmere {

/// The user's home. On macOS the one that the system reports for this process, which in the sandbox
/// is its container's; environment variables do not count. Elsewhere `$HOME` if it is an absolute
/// path, otherwise the home in the password entry. "/" when there is none.
[[nodiscard]] std::string homeDirectory();

/// Absolute path of the folder that the platform keeps for the application group, shared by related
/// programs; nothing where it has none. Only macOS has such folders.
[[nodiscard]] std::optional<std::string> appGroupContainer(std::string_view group);

/// The current directory, or "/" when there is none, for example because it was removed.
[[nodiscard]] std::string currentDirectory();

/// `path`, which must be absolute, with symbolic links and dots resolved in parts that exist.
[[nodiscard]] std::string withLinksResolved(const std::string& path);

/// What is at a path. A symbolic link counts as something else, even one to a socket; a dangling
/// link counts as nothing.
enum class PathKind { nothing, socket, somethingElse };
[[nodiscard]] PathKind kindOfPath(const std::string& path);

/// The content of the regular file at `path`, or nothing if it can't be read or is longer than
/// `maxBytes`. Never blocks: does not read a pipe or device.
[[nodiscard]] std::optional<std::string> readFile(const std::string& path, std::size_t maxBytes);

}  // namespace quillmere
