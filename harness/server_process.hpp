// The server as an AI client sees it: a child process with two pipes.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "json/document.hpp"
#include "json/writer.hpp"
#include "platform/descriptor.hpp"
#include "protocol/framing.hpp"

namespace quillmere {

/// How the child's standard input and output are made: as shells do, or as Node-based clients do.
enum class ChildStreams { pipes, socketPairs };

/// For waits that end with what is waited for, or with the process (see `Waiting`).
inline constexpr std::chrono::milliseconds forever{-1};

/// One running server. Killed, if it still runs, when it goes out of scope or its parent ends. One
/// thread at a time.
class ServerProcess {
 public:
  struct Options {
    std::string program;
    std::vector<std::string> arguments = {};
    /// The child's home; everything else of the environment is passed on.
    std::string home = {};
    ChildStreams streams = ChildStreams::pipes;
    /// Whether the child's ends of them do not block.
    bool nonBlocking = false;
    /// Whether the child is killed, on Linux, when the thread that started it ends.
    bool diesWithParent = true;
  };

  /// Throws `std::system_error` when the program can't be started.
  explicit ServerProcess(const Options& options);
  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;
  ServerProcess(ServerProcess&&) = delete;
  ServerProcess& operator=(ServerProcess&&) = delete;
  ~ServerProcess();

  /// Writes bytes as they are. Returns false when the server does not read any more.
  bool send(std::string_view bytes);
  bool send(const std::string& bytes) { return send(std::string_view(bytes)); }
  bool send(const char* bytes) { return send(std::string_view(bytes)); }
  /// Writes a message as one line.
  bool sendMessage(const JsonText& message);

  /// The next message, in either framing; null when the server has closed its output or says
  /// nothing for `patience`.
  [[nodiscard]] std::shared_ptr<const JsonDocument> receive(
      std::chrono::milliseconds patience = forever);

  /// Ends the server's standard input, or its standard output.
  void closeInput() { input = Descriptor(); }
  void closeOutput() { output = Descriptor(); }

  /// The exit status once the process has ended, or nothing if it runs on for `patience`; 128 and
  /// the signal's number when a signal ended it.
  [[nodiscard]] std::optional<int> waitForExit(std::chrono::milliseconds patience = forever);

  [[nodiscard]] pid_t processID() const { return child; }
  [[nodiscard]] int inputDescriptor() const { return input.number(); }
  [[nodiscard]] int outputDescriptor() const { return output.number(); }

 private:
  pid_t child = -1;
  std::optional<int> exitStatus;
  Descriptor input;
  Descriptor output;
  /// Only remembers that `receive` has met a header block.
  ServerState framing;
  std::optional<StdinReader> reader;
};

}  // namespace quillmere
