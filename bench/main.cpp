// Measures the server beside its rivals: all of them in turn, round by round, in one run.
//
// quillmere-bench [option...] SERVER COMPAT FLOOR
#include <sched.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "bench/report.hpp"
#include "harness/temporary_home.hpp"
#include "json/document.hpp"

namespace quillmere::bench {

namespace {

constexpr std::string_view usage =
    "quillmere-bench [option...] SERVER COMPAT FLOOR    the programs to compare\n"
    "\n"
    "  --sdk NODE SCRIPT   one more program: a script for Node.js\n"
    "  --quick             fewer and shorter rounds\n"
    "  --only TEXT         only scenarios with TEXT in their name\n"
    "  --guard FILE        fail if a ratio to the floor is more than twice the one recorded "
    "there\n"
    "  --record FILE       record the ratios there\n";

struct Options {
  std::string server;
  std::string compat;
  std::string floor;
  std::vector<std::string> sdk;
  int rounds = 15;
  std::chrono::milliseconds budget{150};
  std::string only;
  std::optional<std::string> guard;
  std::optional<std::string> record;
};

Options readOptions(std::vector<std::string> arguments) {
  Options options;
  std::vector<std::string> programs;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string option = arguments[i];
    const auto value = [&]() -> std::string {
      if (++i == arguments.size()) throw std::invalid_argument(option + " needs a value.");
      return arguments[i];
    };
    if (option == "--sdk") {
      options.sdk = {value()};
      options.sdk.push_back(value());
    } else if (option == "--quick") {
      options.rounds = 5;
      options.budget = std::chrono::milliseconds(50);
    } else if (option == "--only") {
      options.only = value();
    } else if (option == "--guard") {
      options.guard = value();
    } else if (option == "--record") {
      options.record = value();
    } else if (option.starts_with("-")) {
      throw std::invalid_argument(option + " is not an option.");
    } else {
      programs.push_back(option);
    }
  }
  if (programs.size() != 3) throw std::invalid_argument("SERVER, COMPAT and FLOOR are needed.");
  options.server = programs[0];
  options.compat = programs[1];
  options.floor = programs[2];
  return options;
}

/// Writes the server's `tools/list` result into a file for its rivals, and returns the path.
std::string saveToolList(const Options& options, const TemporaryHome& home, App& app) {
  const Rival server{"server", options.server};
  Contender contender(server, ChildStreams::pipes, app);
  contender.session().send(request(1, "tools/list"));
  const auto response = parseJson(receiveFrom(contender.session()));
  const auto result = response->object().findObject("result");
  if (!result) throw std::runtime_error("The server lists no tools.");
  std::string path = home.path() + "/tools.json";
  std::ofstream(path) << result->text();
  return path;
}

/// Floor and server.
constexpr std::size_t comparedRivals = 2;
constexpr int roundsForScale = 3;

/// Binds processes to one processor, and releases them. On one processor a call's cost is not
/// hidden by wake-ups between processors. Child processes inherit the binding.
class Affinity {
 public:
  Affinity() {
    check(::sched_getaffinity(0, sizeof all, &all));
    // The last one: interrupts and other programs tend to use the first.
    std::size_t last = CPU_SETSIZE - 1;
    while (!CPU_ISSET(last, &all)) --last;
    CPU_SET(last, &one);
  }

  /// Binds this process and `other` to one processor, or lets both use all of them.
  void pin(bool toOne, pid_t other) const {
    for (const pid_t process : {pid_t{0}, other}) {
      check(::sched_setaffinity(process, sizeof all, toOne ? &one : &all));
    }
  }

 private:
  static void check(int result) {
    if (result != 0) throw std::system_error(errno, std::generic_category(), "affinity");
  }

  cpu_set_t all{};
  cpu_set_t one{};
};

class Benchmark {
 public:
  explicit Benchmark(Options given) : options(std::move(given)), app(home.releaseSocket()) {
    const std::string list = saveToolList(options, home, app);
    rivals.push_back({"floor", options.floor, {home.releaseSocket(), list}});
    rivals.push_back({"server", options.server});
    if (!options.sdk.empty()) {
      rivals.push_back(
          {"SDK", options.sdk[0], {options.sdk[1], home.releaseSocket(), list}, false});
    }
  }

  /// Returns whether the guard passes.
  bool run() {
    std::vector<std::string> names;
    for (const Rival& rival : rivals) names.push_back(rival.name);
    printHead(names);
    std::vector<Row> rows;
    for (const Scenario& scenario : scenarios()) {
      if (scenario.name.find(options.only) == std::string_view::npos) continue;
      rows.push_back(measure(scenario));
      printRow(rows.back());
    }
    printLegend(std::ranges::any_of(rows, isNoisy));
    if (options.record) writeRatios(*options.record, rows);
    return !options.guard || passes(rows, readRatios(*options.guard));
  }

 private:
  Row measure(const Scenario& scenario) {
    const Scenario::Details& details = scenario.details;
    affinity.pin(details.onOneProcessor, app.processID());
    std::vector<const Rival*> compared = {&rivals[0], &rivals[1]};
    switch (details.compared) {
      case Scenario::Pair::floorAndServer:
        if (rivals.size() > compared.size()) compared.push_back(&rivals[2]);
        break;
      case Scenario::Pair::serverAndCompat:
        compared = {&rivals[1], &compat};
        break;
      case Scenario::Pair::floorAndCompat:
        compared = {&rivals[0], &compat};
    }
    std::vector<Contender> contenders;
    contenders.reserve(compared.size());
    for (const Rival* rival : compared) {
      contenders.emplace_back(*rival, details.streams, app);
    }
    Row row{scenario, std::vector<std::vector<double>>(rivals.size())};
    for (int round = 0; round < std::min(options.rounds, details.mostRounds); ++round) {
      for (std::size_t i = 0; i < contenders.size(); ++i) {
        if (details.inHeaderFraming && !compared[i]->takesHeaderFraming) continue;
        // The others are for scale: a few rounds of their long scenarios are enough.
        if (i >= comparedRivals && round >= roundsForScale) continue;
        row.rounds[i].push_back(scenario.measure(scenario, contenders[i], options.budget));
      }
    }
    return row;
  }

  /// Measures a failing row once more and fails only if it fails again, since machines stall at
  /// times. A row that is too noisy for a verdict does not fail.
  bool passes(const std::vector<Row>& rows, const RecordedRatios& recorded) {
    bool allPass = true;
    for (const Row& row : rows) {
      if (!failsGuard(row, recorded)) continue;
      const Row again = measure(row.scenario);
      if (isNoisy(again) || !failsGuard(again, recorded)) continue;
      printRow(again);
      std::printf("FAILED: %.*s: more than twice the recorded ratio, twice in a row.\n",
                  static_cast<int>(row.scenario.name.size()), row.scenario.name.data());
      allPass = false;
    }
    return allPass;
  }

  const Options options;
  const TemporaryHome home;
  App app;
  const Affinity affinity;
  /// The rivals that have a column.
  std::vector<Rival> rivals;
  const Rival compat{"compat", options.compat};
};

}  // namespace

}  // namespace quillmere::bench

int main(int argumentCount, char** arguments) {
  using namespace quillmere::bench;
  const std::vector<std::string> given(arguments + 1, arguments + argumentCount);
  if (std::ranges::find(given, "--help") != given.end()) {
    std::fputs(usage.data(), stdout);
    return 0;
  }
  try {
    return Benchmark(readOptions(given)).run() ? 0 : 1;
  } catch (const std::invalid_argument& mistake) {
    std::fprintf(stderr, "quillmere-bench: %s\n\n%s", mistake.what(), usage.data());
    return 2;
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "quillmere-bench: %s\n", failure.what());
    return 2;
  }
}
