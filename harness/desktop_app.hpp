// A desktop app that does what a test tells it.
#pragma once

#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

#include "harness/unix_listener.hpp"
#include "json/document.hpp"
#include "json/writer.hpp"
#include "platform/descriptor.hpp"

namespace quillmere {

/// The desktop app's end of one connection. Everything waits for what the server does, as long as
/// `Waiting` allows.
class AppConnection {
 public:
  explicit AppConnection(Descriptor connection) : descriptor(std::move(connection)) {}

  /// Reads one control frame: its body, or null when the server has closed before.
  [[nodiscard]] std::shared_ptr<const JsonDocument> receive() const;

  /// Sends bytes as they are, or an object as one control frame. Returns false when the server has
  /// gone.
  bool send(std::string_view bytes) const;
  bool answer(const JsonText& payload) const;

  /// Waits until the server has closed its end. Returns how many bytes came before that.
  std::size_t waitUntilClosed() const;

  /// Ends the connection: the server sees it as closed. Going out of scope does the same.
  void close() const;

  [[nodiscard]] int number() const { return descriptor.number(); }

 private:
  Descriptor descriptor;
};

/// Listens at one of a home's socket paths. Either the test takes each connection itself, by
/// `accept`, and so holds and answers them in the order it likes; or it gives a handler, which then
/// runs for each connection on a thread of its own and closes it by returning.
class DesktopApp {
 public:
  using Handler = std::function<void(const AppConnection&)>;

  explicit DesktopApp(std::string socketPath, Handler connectionHandler = {});
  DesktopApp(const DesktopApp&) = delete;
  DesktopApp& operator=(const DesktopApp&) = delete;
  /// Closes the connections whose handlers still wait for the server, and waits for the handlers.
  ~DesktopApp();

  /// Waits for the next connection. Only without a handler.
  [[nodiscard]] AppConnection accept() const;
  /// The same, but nothing once `descriptor` can be read, or has been closed by its other side,
  /// while no connection waits: for a connection that need not come.
  [[nodiscard]] std::optional<AppConnection> acceptUnless(int descriptor) const;

 private:
  struct Handling {
    AppConnection connection;
    std::thread thread;
  };

  void acceptAll();

  const UnixListener listener;
  const Handler handler;
  /// Only the accepting thread adds; looked at when it has ended.
  std::list<Handling> handlings;
  std::thread accepting;
};

}  // namespace quillmere
