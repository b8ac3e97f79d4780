// How the process takes memory from the system and gives it back: all there is to know about it is
// in this file and its source.
#pragma once

#include <cstddef>

namespace quillmere {

/// Sets up the allocator for a program that now and then needs much memory for a moment, and puts a
/// reserve of address space aside. Call once, at start.
void tuneAllocator();

/// Gives the reserve back to the allocator; false if that was done before. For a new-handler: small
/// allocations then work until a request has its error response. Thread-safe; takes no memory.
bool giveUpReserve();

/// A piece of memory, taken by `resizeBlock` and owned by whoever holds it. Empty at first.
struct MemoryBlock {
  void* start = nullptr;
  /// How many bytes may be used, at least as many as were asked for.
  std::size_t bytes = 0;
};

/// Makes `block` at least `bytes` large; what was in it stays, at another place as a rule. Does not
/// call the new-handler. Thread-safe. Throws `std::bad_alloc`, with `block` as it was.
void resizeBlock(MemoryBlock& block, std::size_t bytes);

/// Gives the memory back, to the system if the block is large. Thread-safe.
void releaseBlock(MemoryBlock block) noexcept;

}  // namespace quillmere
