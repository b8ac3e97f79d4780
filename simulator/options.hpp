// The simulator's command line.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <set>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

namespace quillmere::simulator {

/// What goes wrong on purpose, for people who test their own clients.
struct Faults {
  /// How long to delay each response.
  std::chrono::milliseconds delay{0};
  /// How many bytes of each response frame to send before closing the connection.
  std::optional<std::size_t> dropAfter;
  /// Commands to answer with a failure and not carry out.
  std::set<std::string> failingCommands;
  /// Whether each response frame ends in the middle of its body.
  bool truncates = false;
  /// Whether to leave every request unanswered.
  bool isSilent = false;
};

struct SimulatorOptions {
  /// Where to listen; empty for where the server looks.
  std::string socketPath;
  /// Where to write the first screen before exiting; empty to listen.
  std::string screenshotFile;
  bool isQuiet = false;
  /// How many times the usual screen the phones have.
  int scale = 1;
  bool wantsHelp = false;
  Faults faults;
};

/// An unknown option, or a value that makes no sense.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The line to print for a wrong option, and the text of `--help`.
extern const std::string_view simulatorUsage;
extern const std::string_view simulatorHelp;

/// Pure. Throws `UsageError`.
[[nodiscard]] SimulatorOptions parseOptions(std::span<const char* const> arguments);

}  // namespace quillmere::simulator
