// A program as its client sees it: a child process, and its standard input and output.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "json/document.hpp"
#include "json/writer.hpp"
#include "platform/descriptor.hpp"

namespace quillmere {

/// How the child's standard input and output are made: as shells do, or as Node-based clients do.
enum class ChildStreams { pipes, socketPairs };

/// One running program, which has the environment of this process. Killed, if it still runs, when
/// it goes out of scope; when this process ends in another way, its input ends. Every wait that
/// is too long throws `TimedOut`. One thread at a time.
class ServerProcess {
 public:
  struct Options {
    std::string program;
    std::vector<std::string> arguments = {};
    ChildStreams streams = ChildStreams::pipes;
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
  /// Writes a message as one line.
  bool sendMessage(const JsonText& message) { return send(message.str() + "\n"); }

  /// The text of the next message, in either framing, and what there is of it at the end of output;
  /// nothing after that. Valid until more is received.
  [[nodiscard]] std::optional<std::string_view> receiveText();
  /// The next message; null when the server has closed its output.
  [[nodiscard]] std::shared_ptr<const JsonDocument> receive();
  /// The next `size` bytes as they come, or all up to the end of output. Valid as above.
  [[nodiscard]] std::string_view receiveBytes(std::size_t size = std::string::npos);

  /// Whether there is output that was not received yet, of which its descriptor may not know.
  [[nodiscard]] bool hasMore() const { return begin < end; }
  void waitForOutput() const;

  /// Ends the server's standard input, or its standard output.
  void closeInput() { input = Descriptor(); }
  void closeOutput() { output = Descriptor(); }

  /// The exit status, once the process has ended; 128 and the signal's number when a signal ended
  /// it.
  int waitForExit();

  [[nodiscard]] pid_t processID() const { return child; }
  [[nodiscard]] int outputDescriptor() const { return output.number(); }

 private:
  /// Appends to what was read. Returns false at the end of output.
  bool readMore();
  std::string_view take(std::size_t size);
  [[nodiscard]] std::string_view waiting() const { return {&buffer[begin], end - begin}; }

  std::string name;
  pid_t child = -1;
  std::optional<int> exitStatus;
  Descriptor input;
  Descriptor output;
  /// What was read and not received yet is from `begin` to `end`.
  std::unique_ptr<char[]> buffer;
  std::size_t room = 0;
  std::size_t begin = 0;
  std::size_t end = 0;
};

}  // namespace quillmere
