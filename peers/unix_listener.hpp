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
  /// Listens at `path`, creating missing folders, with at most `backlog` waiting connections.
  /// Replaces a stale socket. Throws `std::system_error` (EADDRINUSE when something lives there) or
  /// `std::filesystem_error`.
  explicit UnixListener(std::string path, int backlog = 128);
  UnixListener(const UnixListener&) = delete;
  UnixListener& operator=(const UnixListener&) = delete;
  UnixListener(UnixListener&&) = delete;
  UnixListener& operator=(UnixListener&&) = delete;
  ~UnixListener();

  [[nodiscard]] const std::string& path() const { return socketPath; }
  /// The descriptor, which is readable while a connection waits.
  [[nodiscard]] int number() const { return listener.number(); }

  /// Waits for the next connection; nothing once `stop` has been called. One thread at a time.
  [[nodiscard]] std::optional<Descriptor> accept() const;

  /// Makes `accept`, even one that waits, return nothing. Safe in threads and signal handlers.
  void stop() const;

 private:
  std::string socketPath;
  Descriptor listener;
  Channel stopping;
};

}  // namespace quillmere
