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

/// Listens at one of a home's socket paths. Either the test takes each connection itself with
/// `accept`, to hold and answer them in any order; or it passes a handler, which runs for each
/// connection on its own thread and closes it by returning. It must not throw.
class DesktopApp {
 public:
  using Handler = std::function<void(const AppConnection&)>;

  explicit DesktopApp(std::string socketPath, Handler connectionHandler = {});
  DesktopApp(const DesktopApp&) = delete;
  DesktopApp& operator=(const DesktopApp&) = delete;
  /// Closes the connections whose handlers still wait for the server, and waits for the handlers. A
  /// handler that does not return ends the process, since it uses this object.
  ~DesktopApp();

  /// Waits for the next connection. Only without a handler. Throws `TimedOut`.
  [[nodiscard]] AppConnection accept() const;
  /// The same, for a connection that may never come: returns nothing once the server has written
  /// something and no connection is waiting.
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
