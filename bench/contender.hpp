// One of the compared programs, in one scenario.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "bench/app.hpp"
#include "peers/server_process.hpp"

namespace quillmere::bench {

struct Rival {
  std::string name;
  std::string program;
  std::vector<std::string> arguments = {};
  bool takesHeaderFraming = true;
};

/// A rival at work, with its app. Starts the process on first use.
class Contender {
 public:
  Contender(const Rival& rivalToStart, ChildStreams streamKind, App& desktopApp)
      : app(desktopApp), rival(rivalToStart), streams(streamKind) {}

  /// A new process, before the handshake.
  [[nodiscard]] std::unique_ptr<ServerProcess> start() const;
  /// A new process after the handshake.
  [[nodiscard]] std::unique_ptr<ServerProcess> startInitialized() const;
  /// The process of this scenario, after the handshake.
  [[nodiscard]] ServerProcess& session();

  App& app;

 private:
  const Rival& rival;
  const ChildStreams streams;
  std::unique_ptr<ServerProcess> running;
};

/// The next message's text. Throws `std::runtime_error` when the server has gone.
[[nodiscard]] std::string_view receiveFrom(ServerProcess& server);

/// Messages of the client, one per line.
[[nodiscard]] std::string initializeRequest();
[[nodiscard]] std::string request(int id, std::string_view method, std::string_view params = "{}");
/// A tool call that makes the app answer with this payload. `arguments` are the tool's own.
[[nodiscard]] std::string callRequest(int id, std::string_view answer,
                                      std::string_view tool = "input.tap",
                                      std::string_view arguments = R"(,"x":120,"y":340.5)");

/// `line` in header framing.
[[nodiscard]] std::string withHeader(std::string_view line);

}  // namespace quillmere::bench
