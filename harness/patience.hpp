// Waits that end. A program that tests another one waits for it all the time, and when the other
// one is broken it would wait in vain.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>

namespace quillmere {

/// How long to wait for anything: 30 seconds, many times what it takes. When one wait was in vain
/// the program under test is broken, and the waits after it get 2 seconds, so that the whole run
/// ends within a minute and still shows all that fails. Thread-safe.
[[nodiscard]] std::chrono::seconds patience();

/// What was waited for has not come. Thrown in a test it is that test's failure.
class WaitedInVain : public std::runtime_error {
 public:
  /// Waits from now on are short.
  explicit WaitedInVain(const std::string& what);
};

/// Waits until `descriptor` can be read, or can be written to, or has been closed by its other
/// side. Throws `WaitedInVain`.
void waitUntilReadable(int descriptor, const std::string& what);
void waitUntilWritable(int descriptor, const std::string& what);

/// Waits until `isTrue`, which is asked again and again. Throws `WaitedInVain`.
template <typename Condition>
void waitUntil(const std::string& what, Condition isTrue) {
  for (const auto latest = std::chrono::steady_clock::now() + patience(); !isTrue();) {
    if (std::chrono::steady_clock::now() > latest) throw WaitedInVain(what);
    std::this_thread::yield();
  }
}

/// The same, asked whenever `changed` is notified, with `hold`'s lock held. Throws `WaitedInVain`.
template <typename Condition>
void waitUntil(const std::string& what, std::condition_variable& changed,
               std::unique_lock<std::mutex>& hold, Condition isTrue) {
  if (!changed.wait_for(hold, patience(), isTrue)) throw WaitedInVain(what);
}

}  // namespace quillmere
