// Stream sockets in the Unix domain: one thin function for each system call that the program needs.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "platform/descriptor.hpp"

namespace quillmere {

/// Longest socket path, in bytes, without its terminating NUL. The smaller of the limits of the
/// platforms, kept on all of them.
inline constexpr std::size_t maxSocketPathBytes = 103;

/// Owns one socket. Once connected it may be shared: every function may then be called from several
/// threads at a time, and the number stays taken until the last holder lets go.
class UnixSocket {
 public:
  /// A fresh, close-on-exec socket, or nothing when the system gives none. It does not block until
  /// it is made to.
  [[nodiscard]] static std::optional<UnixSocket> create();

  /// Takes over a descriptor that is a socket already.
  explicit UnixSocket(Descriptor socket) : descriptor(std::move(socket)) {}

  /// Makes `send` and `receive` block. Ignores failure.
  void block() const;

  /// Connects to `path`, of at most `maxSocketPathBytes` bytes. Returns 0 or the error number.
  [[nodiscard]] int connectTo(std::string_view path) const;

  struct Wait {
    bool timedOut = false;
    int error = 0;
  };
  /// Waits once until the socket can be written to. An interruption counts as an error.
  [[nodiscard]] Wait waitUntilWritable(std::chrono::milliseconds most) const;

  /// Takes the error number of an asynchronous connect, 0 for none; the current error number if it
  /// can't be read.
  [[nodiscard]] int takePendingError() const;

  /// Bounds each blocking `send` and each `receive` from now on. Ignores failure.
  void setTimeouts(std::chrono::seconds limit) const;

  /// One `send` or `recv`: how many bytes went, at least 1, or 0 for failure, time-out and end of
  /// stream alike.
  [[nodiscard]] std::size_t send(std::string_view data) const;
  [[nodiscard]] std::size_t receive(char* to, std::size_t atMost) const;

  /// Ends the connection in both directions; calls that block on it return at once.
  void shutDown() const;

 private:
  Descriptor descriptor;
};

}  // namespace quillmere
