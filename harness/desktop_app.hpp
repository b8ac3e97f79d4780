// A desktop app that does what a test orders.
#pragma once

#include <condition_variable>
#include <functional>
#include <list>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "peers/app_connection.hpp"
#include "peers/server_process.hpp"
#include "peers/unix_listener.hpp"

namespace quillmere {

/// Listens at one of a home's socket paths. Either the test takes each connection itself, by
/// `accept`, and so holds and answers them in the order it likes; or it gives a handler, which then
/// runs for each connection on a thread of its own and closes it by returning. What a handler
/// throws ends the process.
class DesktopApp {
 public:
  using Handler = std::function<void(const AppConnection&)>;

  explicit DesktopApp(std::string socketPath, Handler connectionHandler = {});
  DesktopApp(const DesktopApp&) = delete;
  DesktopApp& operator=(const DesktopApp&) = delete;
  /// Closes the connections whose handlers still wait for the server, and waits for the handlers.
  /// One that does not return ends the process, since it uses this object.
  ~DesktopApp();

  /// Waits for the next connection. Only without a handler. Throws `TimedOut`.
  [[nodiscard]] AppConnection accept() const;
  /// The same, but nothing once the server has said something while no connection waits: for a
  /// connection that may never come.
  [[nodiscard]] std::optional<AppConnection> acceptUnless(const ServerProcess& server) const;

  /// Waits until every handler has returned. Throws `TimedOut`.
  void waitUntilIdle();

 private:
  void acceptAll();
  void handle(std::list<AppConnection>::iterator place);

  const UnixListener listener;
  const Handler handler;
  std::mutex lock;
  std::condition_variable changed;
  std::list<AppConnection> _open;
  std::thread accepting;
};

}  // namespace quillmere
