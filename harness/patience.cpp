#include "harness/patience.hpp"

#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <map>
#include <mutex>
#include <utility>

namespace quillmere {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds patience{30};

/// Everything that is waited for, and the thread that watches it.
class Watch {
 public:
  /// Never destroyed, since its thread never ends.
  static Watch& instance() {
    static auto& watch = *new Watch;
    return watch;
  }

  void add(const Waiting* waiting, std::string what) {
    const std::lock_guard hold(lock);
    _waits[waiting] = {.until = Clock::now() + patience, .what = std::move(what)};
  }
  void remove(const Waiting* waiting) {
    const std::lock_guard hold(lock);
    _waits.erase(waiting);
  }

 private:
  struct Wait {
    Clock::time_point until;
    std::string what;
  };

  Watch() {
    std::thread([this] { run(); }).detach();
  }

  void run() {
    for (std::unique_lock hold(lock);; never.wait_for(hold, std::chrono::seconds(1))) {
      for (const auto& [waiting, wait] : _waits) {
        if (Clock::now() < wait.until) continue;
        std::fflush(stdout);
        std::fprintf(stderr, "FAILED: waited 30 seconds in vain for %s\n", wait.what.c_str());
        ::_exit(1);
      }
    }
  }

  std::mutex lock;
  /// Nobody notifies it: the watch only sleeps on it.
  std::condition_variable never;
  std::map<const Waiting*, Wait> _waits;
};

}  // namespace

Waiting::Waiting(std::string forWhat) {
  Watch::instance().add(this, std::move(forWhat));
}

Waiting::~Waiting() {
  Watch::instance().remove(this);
}

}  // namespace quillmere
