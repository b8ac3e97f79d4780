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

/// The child's standard input and output: pipes as from shells, sockets as from Node-based clients.
enum class ChildStreams { pipes, socketPairs };

/// One running program, with the environment of this process. The destructor kills it if it still
/// runs; if this process ends in another way, the program's input ends. A wait that takes too long
/// throws `TimedOut`. One thread at a time.
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

  /// Writes bytes unchanged. Returns false when the server no longer reads.
  bool send(std::string_view bytes);
  /// Writes a message as one line.
  bool sendMessage(const JsonText& message) { return send(message.str() + "\n"); }

  /// The text of the next message, in either framing. At the end of output, the part of a message
  /// that is left; nothing after that. Valid until the next read.
  [[nodiscard]] std::optional<std::string_view> receiveText();
  /// The next message; null when the server has closed its output.
  [[nodiscard]] std::shared_ptr<const JsonDocument> receive();
  /// The next `size` bytes, or fewer at the end of output. Valid until the next read.
  [[nodiscard]] std::string_view receiveBytes(std::size_t size = std::string::npos);

  /// Whether there is output that the caller has not received yet. The descriptor alone does not
  /// tell, since we may have read ahead.
  [[nodiscard]] bool hasMore() const { return begin < end; }
  void waitForOutput() const;

  /// Ends the server's standard input, or its standard output.
  void closeInput() { input = Descriptor(); }
  void closeOutput() { output = Descriptor(); }

  /// Waits for the exit status: 128 plus the signal's number if a signal ended the process.
  int waitForExit();

  [[nodiscard]] pid_t processID() const { return child; }
  [[nodiscard]] int outputDescriptor() const { return output.number(); }

 private:
  /// Reads more output. Returns false at its end.
  bool readMore();
  std::string_view take(std::size_t size);
  [[nodiscard]] std::string_view waiting() const { return {&buffer[begin], end - begin}; }

  std::string name;
  pid_t child = -1;
  std::optional<int> exitStatus;
  Descriptor input;
  Descriptor output;
  /// The bytes from `begin` to `end` were read but not received yet.
  std::unique_ptr<char[]> buffer;
  std::size_t room = 0;
  std::size_t begin = 0;
  std::size_t end = 0;
};

}  // namespace quillmere
