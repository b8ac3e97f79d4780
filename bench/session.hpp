// A running server as the benchmark's client sees it.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/descriptor.hpp"

namespace quillmere::bench {

/// How the child's standard input and output are made: as shells do, or as Node-based clients do.
enum class Streams { pipes, socketPairs };

/// What is resident now, its share of that (PSS), and the most that was ever resident.
enum class Memory { resident, share, peak };

/// One server process, killed when it goes out of scope or when the thread that made it ends.
/// Timing comes first: messages are bytes, and nothing is checked but where they end. Every
/// function throws `std::runtime_error` when the server has gone.
class Session {
 public:
  /// Starts `command`, whose first element is the program's path, with `HOME` set to `home`.
  Session(const std::vector<std::string>& command, const std::string& home, Streams streams);
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;
  Session(Session&&) = delete;
  Session& operator=(Session&&) = delete;
  ~Session();

  /// Writes bytes as they are.
  void send(std::string_view bytes) const;

  /// The text of the next message, in either framing; valid until the next call. Blocks.
  [[nodiscard]] std::string_view receive();

  [[nodiscard]] pid_t processID() const { return child; }

  /// Processor time that the process has taken so far, in all its threads, ended ones included.
  [[nodiscard]] std::chrono::nanoseconds processorTime() const;

  [[nodiscard]] double bytesOf(Memory memory) const;

 private:
  void readMore();

  pid_t child = -1;
  Descriptor input;
  Descriptor output;
  /// Room for the largest answer. Pages that were never read into take up no memory.
  std::unique_ptr<char[]> buffer;
  std::size_t begin = 0;
  std::size_t end = 0;
};

}  // namespace quillmere::bench
