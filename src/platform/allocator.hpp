// How the process takes memory from the system and gives it back.
#pragma once

namespace quillmere {

/// Makes the process keep freed memory, large blocks included, for what comes next, in one heap for
/// all threads. Call once, at start.
void tuneAllocator();

/// Gives freed memory back to the system. For when there is nothing to do: memory that is fresh
/// from the system costs more time than all that is done with it, a page fault for each 4 KiB.
/// Takes up to milliseconds. Thread-safe.
void returnFreedMemory();

}  // namespace quillmere
