// Which processors a process may run on.
#pragma once

#include <sched.h>
#include <sys/types.h>

namespace quillmere::bench {

/// Binds processes to one processor, where a call's cost shows without the wake-ups between
/// processors that would hide it, and lets them go again. Processes that they start inherit it.
class Affinity {
 public:
  /// Remembers which processors this process may use.
  Affinity();

  /// Binds this process and `other` to one processor, or lets both use all of them. Throws
  /// `std::system_error`.
  void pin(bool toOne, pid_t other) const;

 private:
  cpu_set_t all{};
  cpu_set_t one{};
};

}  // namespace quillmere::bench
