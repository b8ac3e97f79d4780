// The whole program, whatever its dialect.
#pragma once

#include "mcp/dialect.hpp"

namespace quillmere {

/// What `main` does: carries out an option, or serves standard input and output until one of them
/// ends. `dialect` must live as long as the process. Returns the status of an option, and ends the
/// process otherwise. Call first in `main`.
[[nodiscard]] int runProgram(int argumentCount, char** arguments, const Dialect& dialect);

}  // namespace quillmere
