// The scenarios that the benchmark measures.
#pragma once

#include <chrono>
#include <cstddef>
#include <span>
#include <string>
#include <string_view>

#include "bench/contender.hpp"

namespace quillmere::bench {

/// What the server should reach: a ratio to the floor, or a figure in the scenario's own unit.
struct Bar {
  enum class Kind { none, ratio, figure } kind = Kind::none;
  double value = 0;
};

struct Scenario {
  std::string_view name;
  std::string_view unit;
  /// One round: takes samples for about as long as `budget`, at least one, and returns their median
  /// in `unit`.
  double (*measure)(const Scenario& scenario, Contender& contender,
                    std::chrono::milliseconds budget);
  /// The message to send, if it is the same each time.
  std::string message;
  Bar bar = {};

  /// Which two programs a row compares. The first is in the column of the floor.
  enum class Pair { floorAndServer, serverAndCompat, floorAndCompat };

  struct Details {
    ChildStreams streams = ChildStreams::pipes;
    /// Client, server and app on one processor.
    bool onOneProcessor = true;
    bool moreIsBetter = false;
    /// With `Content-Length` headers, which not every rival accepts.
    bool inHeaderFraming = false;
    /// For memory: the bytes in one `unit`; a MB by default.
    std::size_t unitBytes = 1 << 20;
    /// Lower for scenarios that take long and vary little.
    int mostRounds = 100;
    Pair compared = Pair::floorAndServer;
  } details = {};
};

/// All scenarios, in the order of the table.
[[nodiscard]] std::span<const Scenario> scenarios();

}  // namespace quillmere::bench
