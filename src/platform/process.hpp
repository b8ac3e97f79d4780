// The process itself: its surroundings at start, and its end.
#pragma once

#include <string_view>

namespace quillmere {

/// Call first in `main`. Makes a write to a closed pipe or socket an error instead of a deadly
/// signal, allows the process as many descriptors as it may allow itself, and fills closed standard
/// descriptors, so that no socket is ever opened under the number of one. A standard output filled
/// in this way refuses to be written to.
void prepareProcess();

/// The name under which the process was started, argument zero; empty when there is none.
[[nodiscard]] std::string_view argumentZero();

/// Ends the process at once, with status 0, from any thread, whatever the other threads do.
[[noreturn]] void endProcess();

}  // namespace quillmere
