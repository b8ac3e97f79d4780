#include "simulator/options.hpp"

#include <algorithm>
#include <charconv>
#include <cstdint>

#include "simulator/commands.hpp"

namespace quillmere::simulator {

const std::string_view simulatorUsage =
    "usage: quillmere-desktop-simulator [--socket PATH] [--quiet] [--screen SIZE] [--delay MS] "
    "[--drop-after BYTES] [--fail COMMAND]... [--truncate] [--silence] | --screenshot FILE.png | "
    "--help\n";

const std::string_view simulatorHelp =
    "Stands in for the Quillmere desktop app: two simulated phones behind a control socket.\n"
    "\n"
    "  --socket PATH         Listen at PATH instead of where the server looks for the app.\n"
    "  --quiet               Do not log calls to standard error.\n"
    "  --screen SIZE         Give the phones 540x1200 pixels, the default, or 1080x2400, like\n"
    "                        many real ones.\n"
    "  --screenshot FILE.png Write the phone's first screen to FILE.png and exit.\n"
    "  --help                Print this help and exit.\n"
    "\n"
    "Faults on demand, to test a client:\n"
    "  --delay MS            Delay each response by MS milliseconds (at most 600000).\n"
    "  --drop-after BYTES    Close each connection after BYTES bytes of the response frame.\n"
    "  --fail COMMAND        Answer COMMAND with a failure; may be given more than once.\n"
    "  --truncate            End each response frame in the middle of its body.\n"
    "  --silence             Take requests but never answer; log each call and its end.\n"
    "\n"
    "Examples:\n"
    "  quillmere-desktop-simulator\n"
    "  quillmere-desktop-simulator --delay 2000 --fail tap\n"
    "  quillmere-desktop-simulator --socket /tmp/app.sock --quiet\n";

namespace {

constexpr std::size_t longestDelayMs = 600'000;

std::size_t wholeNumber(std::string_view option, std::string_view text, std::size_t most) {
  std::size_t number = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || stop != end || number > most) {
    throw UsageError(std::string(option) + " takes a whole number from 0 to " +
                     std::to_string(most) + ".");
  }
  return number;
}

struct ScreenRow {
  std::string_view size;
  int scale;
};

constexpr ScreenRow screenRows[] = {{"540x1200", 1}, {"1080x2400", 2}};

int scaleOf(std::string_view size) {
  const auto* row = std::ranges::find(screenRows, size, &ScreenRow::size);
  if (row == std::end(screenRows)) throw UsageError("--screen takes 540x1200 or 1080x2400.");
  return row->scale;
}

struct OptionRow {
  std::string_view name;
  bool takesValue;
  void (*apply)(SimulatorOptions& options, std::string_view value);
};

constexpr OptionRow rows[] = {
    {"--socket", true,
     [](SimulatorOptions& options, std::string_view value) { options.socketPath = value; }},
    {"--screenshot", true,
     [](SimulatorOptions& options, std::string_view value) { options.screenshotFile = value; }},
    {"--screen", true,
     [](SimulatorOptions& options, std::string_view value) { options.scale = scaleOf(value); }},
    {"--quiet", false, [](SimulatorOptions& options, std::string_view) { options.isQuiet = true; }},
    {"--help", false,
     [](SimulatorOptions& options, std::string_view) { options.wantsHelp = true; }},
    {"-h", false, [](SimulatorOptions& options, std::string_view) { options.wantsHelp = true; }},
    {"--delay", true,
     [](SimulatorOptions& options, std::string_view value) {
       options.faults.delay =
           std::chrono::milliseconds(wholeNumber("--delay", value, longestDelayMs));
     }},
    {"--drop-after", true,
     [](SimulatorOptions& options, std::string_view value) {
       options.faults.dropAfter = wholeNumber("--drop-after", value, UINT32_MAX);
     }},
    {"--fail", true,
     [](SimulatorOptions& options, std::string_view value) {
       if (!isCommand(value)) throw UsageError("--fail takes the name of a command, such as tap.");
       options.faults.failingCommands.emplace(value);
     }},
    {"--truncate", false,
     [](SimulatorOptions& options, std::string_view) { options.faults.truncates = true; }},
    {"--silence", false,
     [](SimulatorOptions& options, std::string_view) { options.faults.isSilent = true; }},
};

}  // namespace

SimulatorOptions parseOptions(std::span<const char* const> arguments) {
  SimulatorOptions options;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const auto* row = std::ranges::find(rows, std::string_view(arguments[i]), &OptionRow::name);
    if (row == std::end(rows))
      throw UsageError("There is no option " + std::string(arguments[i]) + ".");
    std::string_view value;
    if (row->takesValue) {
      if (++i == arguments.size()) throw UsageError(std::string(row->name) + " takes a value.");
      value = arguments[i];
      if (value.empty()) throw UsageError(std::string(row->name) + " takes a value.");
    }
    row->apply(options, value);
  }
  return options;
}

}  // namespace quillmere::simulator
