// A running server as the benchmark's client sees it.
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "harness/holdings.hpp"
#include "harness/server_process.hpp"

namespace quillmere::bench {

/// One server process, killed when it goes out of scope.
/// Timing comes first: messages are bytes, and nothing is checked but where they end. Every
/// function throws `std::runtime_error` when the server has gone.
class Session {
 public:
  explicit Session(const ServerProcess::Options& options)
      : process(options), buffer(std::make_unique_for_overwrite<char[]>(roomBytes)) {}

  /// Writes bytes as they are.
  void send(std::string_view bytes) const;

  /// The text of the next message, in either framing; valid until the next call. Blocks.
  [[nodiscard]] std::string_view receive();

  /// Processor time that the process has taken so far, in all its threads, ended ones included.
  [[nodiscard]] std::chrono::nanoseconds processorTime() const;

  [[nodiscard]] double bytesOf(Memory memory) const {
    return memoryOf(process.processID(), memory);
  }

 private:
  void readMore();

  static constexpr std::size_t roomBytes = 64 << 20;

  ServerProcess process;
  /// Room for the largest answer. Pages that were never read into take up no memory.
  std::unique_ptr<char[]> buffer;
  std::size_t begin = 0;
  std::size_t end = 0;
};

}  // namespace quillmere::bench
