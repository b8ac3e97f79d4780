// Unix-domain stream sockets: one thin function for each system call that the program needs.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "platform/descriptor.hpp"

namespace quillmere {

/// Longest socket path, in bytes, without its terminating NUL. The smallest limit of all platforms,
/// used on each of them.
inline constexpr std::size_t maxSocketPathBytes = 103;

/// Owns one socket. Once connected it may be shared: any thread may then call any function at any
/// time, and the number stays taken until the last holder releases it.
class UnixSocket {
 public:
  /// A new close-on-exec socket, or nothing when the system has none.
  [[nodiscard]] static std::optional<UnixSocket> create();

  /// Takes ownership of a descriptor that is a socket already.
  explicit UnixSocket(Descriptor socket) : descriptor(std::move(socket)) {}

  struct ConnectFailure {
    bool timedOut = false;
    /// The system's error number, unless it timed out.
    int error = 0;
  };
  /// Connects a socket that `create` made to `path`, of at most `maxSocketPathBytes` bytes, and
  /// makes it blocking. Waits only once, and at most that long: an interruption is a failure.
  [[nodiscard]] std::optional<ConnectFailure> connectTo(std::string_view path,
                                                        std::chrono::milliseconds most) const;

  /// Limits the time of each blocking `send` and `receive` from now on. Ignores failure.
  void setTimeouts(std::chrono::seconds limit) const;

  /// One `send` or `recv`: the number of bytes transferred, at least 1, or 0 for failure, time-out
  /// and end of stream alike.
  [[nodiscard]] std::size_t send(std::string_view data) const;
  [[nodiscard]] std::size_t receive(char* to, std::size_t atMost) const;

  /// Ends the connection in both directions; calls that block on it return at once.
  void shutDown() const;

 private:
  /// The outcome of a connect that did not finish at once: 0 or an error number.
  [[nodiscard]] int takePendingError() const;

  Descriptor descriptor;
};

}  // namespace quillmere
