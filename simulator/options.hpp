// What the simulator is asked for on its command line.
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

/// What goes wrong on purpose, for those who test their own clients.
struct Faults {
  /// How long each answer is held back.
  std::chrono::milliseconds delay{0};
  /// How many bytes of each answer frame are sent before the connection is closed.
  std::optional<std::size_t> dropAfter;
  /// Commands that are answered with a failure, and not carried out.
  std::set<std::string> failingCommands;
  /// Whether each answer frame ends in the middle of its body.
  bool truncates = false;
  /// Whether nothing is ever answered.
  bool isSilent = false;
};

struct SimulatorOptions {
  /// Where to listen; empty for where the server looks.
  std::string socketPath;
  /// Write the first screen there, and leave; empty to listen.
  std::string screenshotFile;
  bool isQuiet = false;
  bool wantsHelp = false;
  Faults faults;
};

/// An option that there is not, or a value that makes no sense.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The one line that a wrong option is answered with, and the text of `--help`.
extern const std::string_view simulatorUsage;
extern const std::string_view simulatorHelp;

/// Pure. Throws `UsageError`.
[[nodiscard]] SimulatorOptions parseOptions(std::span<const char* const> arguments);

}  // namespace quillmere::simulator
