// The first touch of a page costs more than a microsecond. For a screenshot that adds up to as much
// as everything else we do with it. The first touch of a page of 2 MiB costs hardly more, so large
// blocks are made of such pages, and go back to the system as soon as they are released.
#include "platform/memory.hpp"

#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>
#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace quillmere {

namespace {

/// From this size on a block consists of large pages, in a mapping of its own that the allocator
/// does not keep.
constexpr std::size_t largeBytes = 262'144;
constexpr std::size_t largePageBytes = 2'097'152;
/// More than the mebibyte that the allocator asks the system for when it lacks room for a small
/// block. Nothing writes to it, so it takes no memory that others could use.
constexpr std::size_t reserveBytes = 1'572'864;

std::atomic<void*> reserve = nullptr;

std::size_t pagesFor(std::size_t bytes) {
  return (bytes + largePageBytes - 1) / largePageBytes;
}

}  // namespace

void tuneAllocator() {
#ifdef __GLIBC__
  // Setting it keeps it fixed: otherwise it would rise to the size of each mapping that is freed,
  // and the next large blocks would come from the heap.
  mallopt(M_MMAP_THRESHOLD, static_cast<int>(largeBytes));
  // How much may stay free at the end of the heap. Without it the heap would shrink and grow with
  // each larger message.
  mallopt(M_TRIM_THRESHOLD, 1'048'576);
  // One heap for all threads: what one frees another can use. For small blocks each thread still
  // has a cache of its own.
  mallopt(M_ARENA_MAX, 1);
#endif
  reserve = std::malloc(reserveBytes);
}

bool giveUpReserve() {
  void* const given = reserve.exchange(nullptr);
  std::free(given);
  return given != nullptr;
}

void growBlock(MemoryBlock& block, std::size_t bytes) {
  // A large block is copied when it grows, so it grows by a lot. The part that stays unused is
  // never touched, so it takes no memory.
  const bool isLarge = block.bytes >= largeBytes;
  bytes = std::max(bytes, isLarge ? 4 * block.bytes : block.bytes + block.bytes / 2);
  if (bytes < largeBytes) {
    void* const resized = std::realloc(block.start, bytes);
    if (resized == nullptr) throw std::bad_alloc();
    block = {resized, bytes};
    return;
  }
  const std::size_t pages = pagesFor(bytes);
  void* const start = std::aligned_alloc(largePageBytes, pages * largePageBytes);
  if (start == nullptr) throw std::bad_alloc();
#ifdef __linux__
  // Use a large page for the last part only if it needs more than half of it, and for a block of
  // one page anyway.
  const std::size_t full = std::max<std::size_t>((bytes + largePageBytes / 2) / largePageBytes, 1);
  static_cast<void>(::madvise(start, full * largePageBytes, MADV_HUGEPAGE));
#endif
  if (block.start != nullptr) std::memcpy(start, block.start, block.bytes);
  std::free(block.start);
  block = {start, pages * largePageBytes};
}

void releaseBlock(MemoryBlock block) noexcept {
  std::free(block.start);
}

}  // namespace quillmere
