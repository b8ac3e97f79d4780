// The whole program, for any dialect.
#pragma once

#include "mcp/dialect.hpp"

namespace quillmere {

/// What `main` does: carries out an option and returns its status, or serves standard input and
/// output until one of them ends, and then ends the process. `dialect` must live as long as the
/// process. Call first in `main`.
[[nodiscard]] int runProgram(int argumentCount, char** arguments, const Dialect& dialect);

}  // namespace quillmere
