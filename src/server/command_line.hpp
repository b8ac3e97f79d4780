// The options of the program.
#pragma once

#include <optional>
#include <span>

namespace quillmere {

/// Carries out `--help`, `-h` or `--doctor`, wherever they are in `arguments`, the command line
/// without the program's name; help takes precedence. Returns the status to end the process with,
/// or nothing when the server is to run. Every other argument is ignored. Main thread only.
[[nodiscard]] std::optional<int> runCLI(std::span<const char* const> arguments);

}  // namespace quillmere
