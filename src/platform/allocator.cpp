#include "platform/allocator.hpp"

#include <cstdlib>
#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace quillmere {

void tuneAllocator() {
#ifdef __GLIBC__
  // A fixed threshold: glibc would otherwise raise it to the size of the first large block freed,
  // and keep such blocks from then on.
  mallopt(M_MMAP_THRESHOLD, 131'072);
#endif
}

void returnFreedMemory() {
#ifdef __GLIBC__
  malloc_trim(0);
#endif
}

}  // namespace quillmere
