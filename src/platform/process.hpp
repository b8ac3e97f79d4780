// The process itself: its surroundings at start, and its end.
#pragma once

#include <string_view>

namespace quillmere {

/// Call first in `main`. Makes a write to a closed pipe or socket, or to a file at its size limit,
/// an error instead of a fatal signal, and raises the soft limit of descriptors to the hard one.
void prepareProcess();

/// The name under which the process was started, argument zero; empty when there is none.
[[nodiscard]] std::string_view argumentZero();

/// Ends the process at once, with status 0, whatever other threads are doing. Thread-safe.
[[noreturn]] void endProcess();

}  // namespace quillmere
