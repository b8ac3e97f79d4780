// The desktop app of the benchmark: a process that answers calls with prepared bytes.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "peers/channel.hpp"
#include "peers/unix_listener.hpp"

namespace quillmere::bench {

/// What the app answers. A call selects it in its argument `taskId`, which servers pass on: the
/// name of a payload or one of two special names. For any other name the app closes the connection.
namespace answers {
inline constexpr const char* small = "small";
/// The small one, delayed by `heldMs`.
inline constexpr const char* held = "held";
/// Nothing: the app waits until the connection breaks.
inline constexpr const char* none = "none";
}  // namespace answers

inline constexpr int heldMs = 50;

/// A child process that listens at a control socket from construction to destruction. One thread
/// serves all connections, so that its own scheduling does not affect the measurement.
class App {
 public:
  /// Throws `std::system_error` when it can't listen at `socketPath` or start the process. Call
  /// while this process has only one thread.
  explicit App(const std::string& socketPath);
  App(const App&) = delete;
  App& operator=(const App&) = delete;
  App(App&&) = delete;
  App& operator=(App&&) = delete;
  ~App();

  [[nodiscard]] pid_t processID() const { return child; }

  /// Waits until a call for `answers::none` arrives, or until the connection of one breaks. The
  /// returned time is in nanoseconds of the monotonic clock, which all processes share.
  void waitForArrival();
  [[nodiscard]] std::int64_t waitForBreak();

 private:
  pid_t child = -1;
  const UnixListener listener;
  Channel reports;
};

}  // namespace quillmere::bench
