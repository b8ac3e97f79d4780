// How the process takes memory from the system and gives it back. No other file deals with this.
#pragma once

#include <cstddef>

namespace quillmere {

/// Sets up the allocator for a program that sometimes needs a lot of memory for a moment, and sets
/// a reserve of address space aside. Call once, at start.
void tuneAllocator();

/// Gives the reserve back to the allocator; false if it is gone already. For a new-handler: small
/// allocations then work until a request has its error response. Thread-safe; takes no memory.
bool giveUpReserve();

/// A piece of memory, taken by `growBlock` and owned by whoever holds it. Empty at first.
struct MemoryBlock {
  void* start = nullptr;
  /// Usable bytes, at least as many as were asked for.
  std::size_t bytes = 0;
};

/// Makes `block` at least `bytes` large, which is more than it is: an empty one exactly so, unless
/// it becomes large, and any other by at least half, so that growing by one byte at a time stays
/// linear. Keeps its content, but usually moves it. Does not call the new-handler. Thread-safe.
/// Throws `std::bad_alloc`, with `block` as it was.
void growBlock(MemoryBlock& block, std::size_t bytes);

/// Gives the memory back, to the system if the block is large. Thread-safe.
void releaseBlock(MemoryBlock block) noexcept;

}  // namespace quillmere
