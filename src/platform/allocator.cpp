#include "platform/allocator.hpp"

#include <cstdlib>
#include <limits>
#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace quillmere {

void tuneAllocator() {
#ifdef __GLIBC__
  // The most that glibc allows: larger blocks are mappings of their own, new at each use.
  mallopt(M_MMAP_THRESHOLD, 32 * 1024 * 1024);
  mallopt(M_TRIM_THRESHOLD, std::numeric_limits<int>::max());
  // What one thread frees another can use; small blocks come from a cache of each thread's own.
  mallopt(M_ARENA_MAX, 1);
#endif
}

void returnFreedMemory() {
#ifdef __GLIBC__
  malloc_trim(0);
#endif
}

}  // namespace quillmere
