// The few questions that the program asks of the file system. All are thread-safe. Each throws
// `std::system_error` when a resource is missing that the answer takes: no descriptor, no memory, a
// device that fails, an interruption. What can't be looked at for that reason is not absent.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace quillmere {

/// The user's home. On macOS what the system reports for this process, which in the sandbox is its
/// container's, and no variable of the environment; elsewhere `$HOME` when it is an absolute path,
/// otherwise that of the password entry. "/" when there is none.
[[nodiscard]] std::string homeDirectory();

/// Absolute path of the folder that the platform keeps for the application group, which related
/// programs share; nothing where it has none. Only macOS has such folders.
[[nodiscard]] std::optional<std::string> appGroupContainer(std::string_view group);

/// The current directory, or "/" when there is none, such as after its removal.
[[nodiscard]] std::string currentDirectory();

/// `path`, which must be absolute, with symbolic links and dots resolved as far as its parts exist.
[[nodiscard]] std::string withLinksResolved(const std::string& path);

/// What is at a path. A symbolic link is something else, even one to a socket, and one that leads
/// nowhere is nothing.
enum class PathKind { nothing, socket, somethingElse };
[[nodiscard]] PathKind kindOfPath(const std::string& path);

/// The content of the regular file at `path`, or nothing if it can't be read or holds more than
/// `maxBytes`. Never waits: a pipe or device in its place is not read.
[[nodiscard]] std::optional<std::string> readFile(const std::string& path, std::size_t maxBytes);

}  // namespace quillmere
