#include "platform/allocator.hpp"

#include <chrono>
#include <cstdlib>
#include <mutex>
#include <optional>
#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace quillmere {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds keptFor{2};

struct LargeWork {
  std::mutex lock;
  std::optional<Clock::time_point> _last;
};

LargeWork& largeWork() {
  // Never destroyed: workers may use it while the process ends.
  static auto& work = *new LargeWork;
  return work;
}

}  // namespace

void tuneAllocator() {
#ifdef __GLIBC__
  constexpr int mebibyte = 1024 * 1024;
  // The most that glibc allows: larger blocks are mappings of their own, new at each use.
  mallopt(M_MMAP_THRESHOLD, 32 * mebibyte);
  mallopt(M_TRIM_THRESHOLD, 128 * mebibyte);
  // What one thread frees another can use; small blocks come from a cache of each thread's own.
  mallopt(M_ARENA_MAX, 1);
#endif
}

void noteLargeWork() {
  const std::lock_guard hold(largeWork().lock);
  largeWork()._last = Clock::now();
}

void returnUnneededMemory() {
  {
    const std::lock_guard hold(largeWork().lock);
    std::optional<Clock::time_point>& last = largeWork()._last;
    if (!last || Clock::now() - *last < keptFor) return;
    last.reset();
  }
  returnFreedMemory();
}

void returnFreedMemory() {
#ifdef __GLIBC__
  malloc_trim(0);
#endif
}

}  // namespace quillmere
