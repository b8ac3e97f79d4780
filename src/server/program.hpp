// The whole program, in one form or another.
#pragma once

#include "tools/form.hpp"

namespace quillmere {

/// What `main` does: carries out an option, or serves standard input and output until one of them
/// ends. Returns the status of an option, and ends the process otherwise. Call first in `main`.
[[nodiscard]] int runProgram(int argumentCount, char** arguments, const Form& form);

}  // namespace quillmere
