// The listening end of a control socket.
#pragma once

#include <optional>
#include <string>

#include "peers/channel.hpp"
#include "platform/descriptor.hpp"
#include "platform/unix_socket.hpp"

namespace quillmere {

/// Listens on a Unix-domain stream socket and removes its file when it goes out of scope.
class UnixListener {
 public:
  /// Listens at `path`, creating missing folders, for at most `backlog` connections that wait. A
  /// stale socket in its place is replaced.
  /// Throws `std::system_error` (EADDRINUSE when something lives there) or `std::filesystem_error`.
  explicit UnixListener(std::string path, int backlog = 128);
  UnixListener(const UnixListener&) = delete;
  UnixListener& operator=(const UnixListener&) = delete;
  UnixListener(UnixListener&&) = delete;
  UnixListener& operator=(UnixListener&&) = delete;
  ~UnixListener();

  [[nodiscard]] const std::string& path() const { return socketPath; }
  /// The descriptor, which can be read while a connection waits.
  [[nodiscard]] int number() const { return listener.number(); }

  /// Waits for the next connection; nothing once `stop` has been called. One thread at a time.
  [[nodiscard]] std::optional<Descriptor> accept() const;

  /// Makes `accept`, also one that waits, return nothing. From any thread, and from a signal
  /// handler.
  void stop() const;

 private:
  std::string socketPath;
  Descriptor listener;
  Channel stopping;
};

}  // namespace quillmere
