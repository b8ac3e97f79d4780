// How the process takes memory from the system and gives it back.
#pragma once

namespace quillmere {

/// Makes the process keep freed memory, large blocks included, for what comes next, in one heap for
/// all threads. Memory fresh from the system costs a page fault for each 4 KiB, which is more time
/// than all else that is done with a large answer. Call once, at start.
void tuneAllocator();

/// Tells that a piece of work needs much memory: what it frees is kept for a while, since more such
/// work may follow. Thread-safe.
void noteLargeWork();

/// Gives freed memory back to the system if there was large work and then none for two seconds.
/// Call when a piece of work has ended. Takes up to milliseconds when it does. Thread-safe.
void returnUnneededMemory();

/// Gives freed memory back to the system. For when there is nothing to do. Takes up to
/// milliseconds. Thread-safe.
void returnFreedMemory();

}  // namespace quillmere
