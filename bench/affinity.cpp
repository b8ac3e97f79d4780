#include "bench/affinity.hpp"

#include <cerrno>
#include <system_error>

namespace quillmere::bench {

Affinity::Affinity() {
  if (::sched_getaffinity(0, sizeof all, &all) != 0) {
    throw std::system_error(errno, std::generic_category(), "sched_getaffinity");
  }
  // The last one: interrupts and other programs tend to the first.
  std::size_t last = CPU_SETSIZE - 1;
  while (!CPU_ISSET(last, &all)) --last;
  CPU_SET(last, &one);
}

void Affinity::pin(bool toOne, pid_t other) const {
  for (const pid_t process : {pid_t{0}, other}) {
    if (::sched_setaffinity(process, sizeof all, toOne ? &one : &all) != 0) {
      throw std::system_error(errno, std::generic_category(), "sched_setaffinity");
    }
  }
}

}  // namespace quillmere::bench
