// The simulator's side of the control socket: one request and one response per connection, many
// connections at a time, one world for all of them.
#pragma once

#include <chrono>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "json/value.hpp"
#include "json/writer.hpp"
#include "peers/unix_listener.hpp"
#include "platform/descriptor.hpp"
#include "platform/worker_pool.hpp"
#include "simulator/commands.hpp"
#include "simulator/options.hpp"

namespace quillmere::simulator {

/// Must live until the process ends, since nobody waits for its threads.
class ControlService {
 public:
  /// Writes a line for each call to standard error unless the options say `isQuiet`.
  explicit ControlService(const SimulatorOptions& options);

  /// Answers every connection until the listener is stopped. Calls may still be running then.
  void serve(const UnixListener& listener);

 private:
  void answerConnection(const Descriptor& connection);
  /// The response, or nothing if the client hung up first.
  std::optional<JsonText> answerTo(const JsonObject& request, const Descriptor& connection);
  /// Sends the response, or as much of it as the faults allow. Returns the text to log.
  std::string sendAnswer(const JsonText& answer, const Descriptor& connection) const;
  [[nodiscard]] WorldTime now() const;
  void log(std::string_view what, std::string_view outcome);

  const Faults faults;
  const bool isQuiet;
  const std::chrono::steady_clock::time_point begin = std::chrono::steady_clock::now();
  WorkerPool workers;
  std::mutex logLock;
  std::mutex worldLock;
  World _world;
};

}  // namespace quillmere::simulator
