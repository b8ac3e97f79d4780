// A page that is fresh from the system costs 1.5 µs, for a screenshot as much as all else that is
// done with it. So the memory of one large text serves the next one; but not for long, since a
// server that idles should look like one that has just started. The blocks that are kept, and the
// thread that gives them back, are one half of this file.
//
// The other half is the program's `operator new`. Everything takes small pieces, even the text that
// says that there is no memory. So a reserve is kept for them, and when it is used up the process
// ends. Then only what is large can fail, and whoever asks for something large handles that.
#include "platform/memory.hpp"

#include <pthread.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <utility>

#include "platform/process.hpp"
#ifdef __GLIBC__
#include <malloc.h>
#elif defined(__APPLE__)
#include <malloc/malloc.h>
#endif

namespace quillmere {

namespace {

using Clock = std::chrono::steady_clock;

/// From this size on a block is a mapping of its own, which can grow without being copied and goes
/// back to the system whole; only those are kept.
constexpr std::size_t largeBytes = 131'072;
/// The most that is kept in all: a few of the largest answers.
#ifdef QUILLMERE_KEEPS_NO_MEMORY
// A block that is kept would hide from AddressSanitizer who still uses it.
constexpr std::size_t mostKeptBytes = 0;
#else
constexpr std::size_t mostKeptBytes = 67'108'864;
#endif
constexpr std::chrono::seconds keptFor{1};
/// More than the allocator asks the system for when it lacks room for a small block, a mebibyte. It
/// is never written to, and so takes no memory that others could use.
constexpr std::size_t reserveBytes = 1'572'864;
constexpr std::size_t keeperStackBytes = 65'536;

/// Blocks that nobody uses at the moment, until each has not been used for a while; and the
/// reserve.
class KeptBlocks {
 public:
  /// The smallest kept block of at least `bytes`, or an empty one.
  MemoryBlock take(std::size_t bytes) {
    const std::lock_guard hold(lock);
    Kept* best = nullptr;
    for (Kept& kept : _kept) {
      const bool fits = kept.block.bytes >= bytes;
      if (fits && (best == nullptr || kept.block.bytes < best->block.bytes)) best = &kept;
    }
    return best == nullptr ? MemoryBlock() : takeOut(*best);
  }

  /// For when `std::realloc` has failed: tries again with all kept blocks given back, and for a
  /// small piece with the reserve too. Returns null when that does not help.
  void* resizeInNeed(void* start, std::size_t bytes) {
    const std::lock_guard hold(lock);
    // The reserve is left to what is small: a screenshot for which there is no room must not cost
    // us the text that says so.
    for (Kept& kept : _kept) std::free(takeOut(kept).start);
    void* const resized = std::realloc(start, bytes);
    if (resized != nullptr || bytes >= largeBytes) return resized;
    std::free(std::exchange(_reserve, nullptr));
    return std::realloc(start, bytes);
  }

  void refillReserve() {
    const std::lock_guard hold(lock);
    if (_reserve == nullptr) _reserve = std::malloc(reserveBytes);
  }

  /// Takes the block, or returns false when it is not to be kept.
  bool keep(MemoryBlock block) {
    const std::lock_guard hold(lock);
    auto* const place = std::ranges::find_if(_kept, &Kept::isFree);
    if (place == _kept.end() || _bytes + block.bytes > mostKeptBytes) return false;
    if (!_isKeeperRunning && !startKeeper()) return false;
    _isKeeperRunning = true;
    _bytes += block.bytes;
    *place = {.block = block, .until = Clock::now() + keptFor};
    return true;
  }

 private:
  struct Kept {
    MemoryBlock block;
    Clock::time_point until;

    [[nodiscard]] bool isFree() const { return block.start == nullptr; }
  };

  /// Only with the lock.
  MemoryBlock takeOut(Kept& kept) {
    _bytes -= kept.block.bytes;
    return std::exchange(kept.block, {});
  }

  /// By hand, because a `std::thread` has the default stack and throws when it can't be started.
  bool startKeeper() {
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0) return false;
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_attr_setstacksize(&attributes, keeperStackBytes);
    pthread_t thread{};
    const auto run = [](void* blocks) -> void* {
      static_cast<KeptBlocks*>(blocks)->giveBackInTime();
      return nullptr;
    };
    const bool started = pthread_create(&thread, &attributes, run, this) == 0;
    pthread_attr_destroy(&attributes);
    return started;
  }

  /// The keeper's life: it gives back each block when its time has come, and ends with the last.
  void giveBackInTime() {
    std::unique_lock hold(lock);
    for (;;) {
      const auto now = Clock::now();
      auto next = Clock::time_point::max();
      for (Kept& kept : _kept) {
        if (kept.isFree()) continue;
        if (kept.until <= now) {
          std::free(takeOut(kept).start);
        } else {
          next = std::min(next, kept.until);
        }
      }
      if (_bytes == 0) break;
      never.wait_until(hold, next);
    }
    _isKeeperRunning = false;
    hold.unlock();
    // Many small blocks came with the large ones.
#ifdef __GLIBC__
    malloc_trim(0);
#elif defined(__APPLE__)
    malloc_zone_pressure_relief(nullptr, 0);
#endif
  }

  std::mutex lock;
  /// Nobody notifies it: the keeper only sleeps on it.
  std::condition_variable never;
  std::array<Kept, 16> _kept{};
  std::size_t _bytes = 0;
  void* _reserve = nullptr;
  bool _isKeeperRunning = false;
};

/// Made at the first use and never destroyed: workers may use it while the process ends.
KeptBlocks& keptBlocks() {
  alignas(KeptBlocks) static std::array<std::byte, sizeof(KeptBlocks)> place;
  static auto& kept = *new (place.data()) KeptBlocks;
  return kept;
}

/// As `std::realloc`, but never returns null: it tries `resizeInNeed` first, and then, for a small
/// block, the new-handler ends the process; for a large one it throws `std::bad_alloc`.
void* resized(void* start, std::size_t bytes) {
  void* block = std::realloc(start, bytes);
  if (block == nullptr) block = keptBlocks().resizeInNeed(start, bytes);
  if (block != nullptr) return block;
  // By the rules of C++ the handler is called again and again until there is memory. Ours does not
  // return, and so one call is enough.
  const std::new_handler end = std::get_new_handler();
  if (bytes < largeBytes && end != nullptr) end();
  throw std::bad_alloc();
}

}  // namespace

void tuneAllocator() {
#ifdef __GLIBC__
  // Set, so that it stays: by itself it would rise to the size of each mapping that is freed, and
  // the next large blocks would come from the heap.
  mallopt(M_MMAP_THRESHOLD, static_cast<int>(largeBytes));
  // What small blocks leave free at the end of the heap; without it the heap would shrink and grow
  // with each message of some size.
  mallopt(M_TRIM_THRESHOLD, 1'048'576);
  // One heap for all threads: what one frees another can use. Small blocks come from a cache of
  // each thread's own.
  mallopt(M_ARENA_MAX, 1);
#endif
  refillReserve();
  std::set_new_handler(endProcess);
}

void refillReserve() {
  keptBlocks().refillReserve();
}

void resizeBlock(MemoryBlock& block, std::size_t bytes) {
  // A block that is large already is a mapping, which the system moves without copying it: to
  // exchange that for a kept one would cost more.
  if (block.bytes < largeBytes && bytes >= largeBytes) {
    const MemoryBlock kept = keptBlocks().take(bytes);
    if (kept.start != nullptr) {
      if (block.start != nullptr) std::memcpy(kept.start, block.start, block.bytes);
      std::free(block.start);
      block = kept;
      return;
    }
  }
  block = {resized(block.start, bytes), bytes};
}

void releaseBlock(MemoryBlock block) noexcept {
  if (block.bytes >= largeBytes && keptBlocks().keep(block)) return;
  std::free(block.start);
}

}  // namespace quillmere

#ifndef QUILLMERE_KEEPS_NO_MEMORY
// AddressSanitizer has its own, which see whether each block is given back in the way it was taken.
void* operator new(std::size_t bytes) {
  return quillmere::resized(nullptr, bytes);
}

void operator delete(void* block) noexcept {
  std::free(block);
}

void operator delete(void* block, std::size_t /*bytes*/) noexcept {
  std::free(block);
}
#endif
