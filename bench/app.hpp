// The desktop app of the benchmark: a process that answers calls with prepared bytes.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "peers/channel.hpp"
#include "peers/unix_listener.hpp"

namespace quillmere::bench {

/// Answers, as a call asks for them in its argument `taskId`, which servers pass on: the names of
/// payloads, and two that are none. Asked for any other, the app closes the connection.
namespace answers {
inline constexpr const char* small = "small";
/// The small one, held back for `heldMs`.
inline constexpr const char* held = "held";
/// None: the app waits until the connection breaks.
inline constexpr const char* none = "none";
}  // namespace answers

inline constexpr int heldMs = 50;

/// A child process that listens at a control socket from construction to destruction. One thread
/// serves all connections, so that its own scheduling adds nothing to what is measured.
class App {
 public:
  /// Throws `std::system_error` when it can't listen at `socketPath` or be started. Call while the
  /// process has one thread.
  explicit App(const std::string& socketPath);
  App(const App&) = delete;
  App& operator=(const App&) = delete;
  App(App&&) = delete;
  App& operator=(App&&) = delete;
  ~App();

  [[nodiscard]] pid_t processID() const { return child; }

  /// Waits until a call for `answers::none` has come in, or until the connection of one has broken.
  /// The moment is in nanoseconds of the monotonic clock, which all processes share.
  void waitForArrival();
  [[nodiscard]] std::int64_t waitForBreak();

 private:
  pid_t child = -1;
  const UnixListener listener;
  Channel reports;
};

}  // namespace quillmere::bench
