// How the process takes memory from the system and gives it back: all there is to know about it is
// in this file and its source.
#pragma once

#include <cstddef>

namespace quillmere {

/// Sets up the allocator for a program that now and then needs much memory for a moment, and that
/// answers for every request. From then on an allocation of less than 128 KiB, by `operator new` or
/// by `resizeBlock`, never fails: it uses up the reserve that is made here, and when that does not
/// help, calls the new-handler, which must not return. This sets `endProcess` as the handler; the
/// caller may set another one later. A larger allocation that fails throws `std::bad_alloc` and
/// leaves the reserve. Call once, at start.
void tuneAllocator();

/// Makes the reserve again if it was used, and if there is memory for it. Thread-safe.
void refillReserve();

/// A piece of memory, taken by `resizeBlock` and owned by whoever holds it. Empty at first.
struct MemoryBlock {
  void* start = nullptr;
  /// How many bytes may be used, at least as many as were asked for.
  std::size_t bytes = 0;
};

/// Makes `block` at least `bytes` large; what was in it stays, at another place as a rule. Large
/// blocks are taken from those that were released lately, if one is large enough. Thread-safe.
/// Throws `std::bad_alloc`, with `block` as it was.
void resizeBlock(MemoryBlock& block, std::size_t bytes);

/// Gives the memory back. A large block is kept for a second, for whoever needs one of its size,
/// and then goes back to the system. Thread-safe.
void releaseBlock(MemoryBlock block) noexcept;

}  // namespace quillmere
