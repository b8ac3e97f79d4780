#include "platform/allocator.hpp"

#include <chrono>
#include <cstdlib>
#include <mutex>
#include <optional>
#include <type_traits>
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
// Workers may use it while the process ends.
static_assert(std::is_trivially_destructible_v<LargeWork>);
constinit LargeWork largeWork;

#ifdef __GLIBC__
/// Leaves a free block that small ones are cut from. Without it they are cut from the place of the
/// last large answer, the next one of its size finds no room there and takes a new place: a peak of
/// 2.56 times an answer of 4 MB instead of 1.55.
void keepRoomForSmallBlocks() {
  constexpr std::size_t room = 65'536;
  // Volatile, because a compiler leaves out a block that nobody uses.
  void* volatile block = std::malloc(room);
  // In use for ever, so that the room does not become one with what comes behind it.
  static void* volatile wall = std::malloc(1);
  static_cast<void>(wall);
  std::free(block);
}
#endif

}  // namespace

void tuneAllocator() {
#ifdef __GLIBC__
  constexpr int mebibyte = 1024 * 1024;
  // The most that glibc allows: larger blocks are mappings of their own, new at each use.
  mallopt(M_MMAP_THRESHOLD, 32 * mebibyte);
  mallopt(M_TRIM_THRESHOLD, 128 * mebibyte);
  // What one thread frees another can use; small blocks come from a cache of each thread's own.
  mallopt(M_ARENA_MAX, 1);
  keepRoomForSmallBlocks();
#endif
}

void noteLargeWork() {
  const std::lock_guard hold(largeWork.lock);
  largeWork._last = Clock::now();
}

void returnUnneededMemory() {
  {
    const std::lock_guard hold(largeWork.lock);
    std::optional<Clock::time_point>& last = largeWork._last;
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
