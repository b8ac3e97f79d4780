// Waits that end. A program that tests another one waits for it all the time, and when the other
// one is broken it would wait in vain.
#pragma once

#include <string>
#include <thread>

namespace quillmere {

/// While it lives, its thread waits for something. When that takes 30 seconds, the process says on
/// standard error what it is, and ends with status 1; children of ours end with it. Any thread.
class Waiting {
 public:
  explicit Waiting(std::string forWhat);
  Waiting(const Waiting&) = delete;
  Waiting& operator=(const Waiting&) = delete;
  ~Waiting();
};

/// Waits until `isTrue`, which is asked again and again.
template <typename Condition>
void waitUntil(std::string what, Condition isTrue) {
  const Waiting waiting(std::move(what));
  while (!isTrue()) std::this_thread::yield();
}

}  // namespace quillmere
