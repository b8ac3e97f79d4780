// Threads that nobody waits for.
#pragma once

#include <cstddef>
#include <functional>

namespace quillmere {

/// Runs `task` on a new thread with a stack of `stackBytes` bytes and returns at once. The thread
/// is never joined, so what `task` uses must live until the process ends; `task` must not throw.
/// Returns false, and `task` does not run, when the system gives no thread. Thread-safe.
[[nodiscard]] bool startDetachedThread(std::size_t stackBytes, std::function<void()> task);

}  // namespace quillmere
