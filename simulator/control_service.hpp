// The simulator's side of the control socket: a request and an answer a connection, many
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

/// Must live until the process ends: its threads are never waited for.
class ControlService {
 public:
  /// Writes a line for each call on standard error, unless it is to be quiet.
  ControlService(Faults wantedFaults, bool isQuiet);

  /// Answers whoever connects, until the listener is stopped. Calls may still run then.
  void serve(const UnixListener& listener);

 private:
  void answerConnection(const Descriptor& connection);
  /// The answer, or nothing when the client hung up before there was one.
  std::optional<JsonText> answerTo(const JsonObject& request, const Descriptor& connection);
  /// Sends the answer, or what the faults leave of it. Returns what is to be logged.
  std::string sendAnswer(const JsonText& answer, const Descriptor& connection) const;
  [[nodiscard]] WorldTime now() const;
  void log(std::string_view what, std::string_view outcome);

  const Faults faults;
  const bool isQuiet;
  const std::chrono::steady_clock::time_point begin = std::chrono::steady_clock::now();
  WorkerPool workers;
  std::mutex logLock;
  std::mutex worldLock;
  World _world = makeWorld();
};

}  // namespace quillmere::simulator
