// Waits with a time limit. A peer that plays the client or the app waits for the server all the
// time, and must not wait forever if the server is broken.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>

namespace quillmere {

/// How long to wait for anything: 30 seconds, many times what it takes. Once a wait has timed out,
/// the server is broken: later waits get 2 seconds, so that a test run ends within a minute and
/// still shows every failure. Thread-safe.
[[nodiscard]] std::chrono::seconds patience();

/// A wait took too long. A test that throws this fails with its text, which names the event.
class TimedOut : public std::runtime_error {
 public:
  /// Makes all later waits short.
  explicit TimedOut(const std::string& what);
};

/// Waits until `descriptor` is readable or writable, or its other side is closed. Throws
/// `TimedOut`.
void waitUntilReadable(int descriptor, const std::string& what);
void waitUntilWritable(int descriptor, const std::string& what);

/// Waits until `isTrue`, which is called every millisecond. Throws `TimedOut`.
template <typename Condition>
void waitUntil(const std::string& what, Condition isTrue) {
  for (const auto latest = std::chrono::steady_clock::now() + patience(); !isTrue();) {
    if (std::chrono::steady_clock::now() > latest) throw TimedOut(what);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

/// The same, but calls `isTrue` at each notification, holding `hold`'s lock. Throws `TimedOut`.
template <typename Condition>
void waitUntil(const std::string& what, std::condition_variable& changed,
               std::unique_lock<std::mutex>& hold, Condition isTrue) {
  if (!changed.wait_for(hold, patience(), isTrue)) throw TimedOut(what);
}

}  // namespace quillmere
