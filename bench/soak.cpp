// Keeps one server busy for minutes and tells whether it holds on to anything.
//
//   quillmere-soak MINUTES SERVER
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <vector>

#include "bench/contender.hpp"
#include "bench/home.hpp"

namespace quillmere::bench {

namespace {

constexpr std::size_t callsPerRound = 10'000;
/// Rounds whose lowest figure stands for the beginning, and as many for the end.
constexpr std::size_t comparedRounds = 3;
/// So many that 100,000 calls lie between the beginning and the end.
constexpr std::size_t fewestRounds = 2 * comparedRounds + 10;
constexpr std::size_t mostInFlight = 8;
constexpr double growthBarKiB = 1'024;
constexpr double idleBarKiB = 2'048;
/// After it the server hangs.
constexpr unsigned mostSecondsPerRound = 300;
/// Many times what an idle thread lives.
constexpr std::chrono::seconds longestWayToRest{30};

enum class Kind { answered, invalid, brokenFrame, cancelled };

struct Traffic {
  /// How many of 1,000.
  int share;
  Kind kind;
  /// What the app is asked for.
  std::string answer = {};
};

const Traffic mix[] = {
    {750, Kind::answered, answers::small},
    {120, Kind::answered, answers::image16Kb},
    {16, Kind::answered, answers::image1Mb},
    {1, Kind::answered, answers::image20Mb},
    {40, Kind::answered, answers::refusal},
    // An answer that the app does not have makes it close the connection.
    {30, Kind::answered, "nothing"},
    {20, Kind::invalid},
    {13, Kind::brokenFrame},
    {10, Kind::cancelled, answers::none},
};

/// What a process has. Memory is what is resident.
struct Holdings {
  double memoryKiB = 0;
  std::size_t descriptors = 0;
  std::size_t threads = 0;
};

Holdings holdingsOf(pid_t process) {
  const std::string folder = "/proc/" + std::to_string(process);
  const auto entries = [&](const char* name) {
    return static_cast<std::size_t>(
        std::distance(std::filesystem::directory_iterator(folder + name), {}));
  };
  double size = 0;
  double resident = 0;
  std::ifstream(folder + "/statm") >> size >> resident;
  return {.memoryKiB = resident * static_cast<double>(::sysconf(_SC_PAGESIZE)) / 1'024,
          .descriptors = entries("/fd"),
          .threads = entries("/task")};
}

class Soak {
 public:
  explicit Soak(const std::string& server)
      : app(home.socket()),
        rival{"server", {server}},
        contender(rival, home.path(), Streams::pipes, app) {}

  /// Returns whether the server has passed.
  bool run(std::chrono::minutes duration) {
    const auto begin = std::chrono::steady_clock::now();
    const auto minutes = [&] {
      return std::chrono::duration<double, std::ratio<60>>(std::chrono::steady_clock::now() - begin)
          .count();
    };
    fresh = holdings();
    std::printf("%8s %10s %16s %16s %12s %8s\n", "minutes", "calls", "KiB, at work", "KiB, at rest",
                "descriptors", "threads");
    print(0, fresh, fresh);
    std::vector<Holdings> rests;
    while (rests.size() <= fewestRounds || minutes() < static_cast<double>(duration.count())) {
      ::alarm(mostSecondsPerRound);
      for (std::size_t i = 0; i < callsPerRound; ++i) sendOne();
      receiveAll();
      const Holdings busy = holdings();
      rests.push_back(restOf());
      print(minutes(), busy, rests.back());
    }
    return judge(rests);
  }

  /// On a thread of its own, because a hang has no end: tells it, or that somebody wants this
  /// program to end, and ends it with nothing left behind. The signals are blocked before.
  void watch(sigset_t signals) const {
    std::thread([signals, folder = home.path()] {
      int signal = 0;
      ::sigwait(&signals, &signal);
      std::printf("FAILED: %s\n", signal == SIGALRM ? "The server hangs." : "Interrupted.");
      std::fflush(stdout);
      std::error_code ignored;
      std::filesystem::remove_all(folder, ignored);
      std::_Exit(1);
    }).detach();
  }

 private:
  [[nodiscard]] Holdings holdings() { return holdingsOf(contender.session().processID()); }

  void print(double minutes, const Holdings& busy, const Holdings& rest) const {
    std::printf("%8.1f %10zu %16.0f %16.0f %12zu %8zu\n", minutes, calls, busy.memoryKiB,
                rest.memoryKiB, rest.descriptors, rest.threads);
    std::fflush(stdout);
  }

  /// What is left once the server has nothing to do any more: its threads have ended, and the last
  /// of them has given back what was kept for more work.
  Holdings restOf() {
    const auto latest = std::chrono::steady_clock::now() + longestWayToRest;
    while (holdings().threads > fresh.threads) {
      if (std::chrono::steady_clock::now() > latest) throw std::runtime_error("A thread is left.");
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return holdings();
  }

  void sendOne() {
    int place = static_cast<int>(random() % 1'000);
    const Traffic* traffic = std::begin(mix);
    while (place >= traffic->share) place -= traffic++->share;

    if (inFlight() == mostInFlight) receive();
    Session& session = contender.session();
    const int id = static_cast<int>(++calls);
    switch (traffic->kind) {
      case Kind::answered:
        session.send(callRequest(id, traffic->answer));
        awaited[id] = traffic->answer == "nothing";
        break;
      case Kind::invalid:
        session.send(
            request(id, "tools/call", R"({"name":"quillmere.input.tap","arguments":{"x":"1"}})"));
        awaited[id] = true;
        break;
      case Kind::brokenFrame:
        session.send("Content-Length: " + std::to_string(id) + "x\n\nno JSON\n");
        ++brokenFrames;
        break;
      case Kind::cancelled:
        // With nothing else under way, since its arrival is waited for and answers are not read.
        receiveAll();
        session.send(callRequest(id, traffic->answer));
        app.waitForArrival();
        session.send(
            R"({"jsonrpc":"2.0","method":"notifications/cancelled","params":{"requestId":)" +
            std::to_string(id) + "}}\n");
        static_cast<void>(app.waitForBreak());
        cancelled.insert(id);
        break;
    }
  }

  [[nodiscard]] std::size_t inFlight() const { return awaited.size() + brokenFrames; }

  /// Takes an answer, which must be the one that something in flight asks for.
  void receive() {
    constexpr std::string_view label = R"("id":)";
    const std::string_view head = contender.session().receive().substr(0, 100);
    const bool isError = head.find(R"("error":)") != std::string_view::npos;
    const std::size_t labelAt = head.find(label);
    const std::string_view idOn =
        labelAt == std::string_view::npos ? "" : head.substr(labelAt + label.size());
    if (idOn.starts_with("null") && isError && brokenFrames > 0) {
      --brokenFrames;
      return;
    }
    int id = 0;
    std::from_chars(idOn.data(), idOn.data() + idOn.size(), id);
    const auto at = awaited.find(id);
    if (at != awaited.end() && at->second == isError) {
      awaited.erase(at);
    } else if (cancelled.erase(id) == 0) {
      throw std::runtime_error("An answer that nothing asks for: " + std::string(head));
    }
  }

  void receiveAll() {
    while (inFlight() > 0) receive();
  }

  [[nodiscard]] bool judge(const std::vector<Holdings>& rests) const {
    const auto lowest = [](auto from) {
      return std::min_element(from, from + comparedRounds,
                              [](const Holdings& one, const Holdings& other) {
                                return one.memoryKiB < other.memoryKiB;
                              })
          ->memoryKiB;
    };
    // The first round is the warm-up.
    const double growth = lowest(rests.end() - comparedRounds) - lowest(rests.begin() + 1);
    const double left = rests.back().memoryKiB - fresh.memoryKiB;
    const auto between = (rests.size() - 1 - 2 * comparedRounds) * callsPerRound;
    const bool areSame = std::ranges::all_of(rests, [this](const Holdings& rest) {
      return rest.descriptors == fresh.descriptors && rest.threads == fresh.threads;
    });
    std::printf("\nresident memory grew by %.0f KiB over %zu calls (bar: %.0f)\n", growth, between,
                growthBarKiB);
    std::printf("idle again it is %.0f KiB above a fresh process (bar: %.0f)\n", left, idleBarKiB);
    std::printf("descriptors and threads at rest: %s\n",
                areSame ? "as at the start" : "NOT as at the start");
    const bool passed = growth <= growthBarKiB && left <= idleBarKiB && areSame;
    std::printf("%s\n", passed ? "PASSED" : "FAILED");
    return passed;
  }

  const Home home;
  App app;
  const Rival rival;
  Contender contender;
  Holdings fresh;
  /// Always the same traffic.
  std::mt19937 random{1};
  std::size_t calls = 0;
  /// The ids of the calls that must be answered, and whether with an error.
  std::map<int, bool> awaited;
  /// The ids of the calls that may be.
  std::set<int> cancelled;
  /// Answered without an id.
  std::size_t brokenFrames = 0;
};

}  // namespace

}  // namespace quillmere::bench

int main(int argumentCount, char** arguments) {
  const long minutes = argumentCount == 3 ? std::strtol(arguments[1], nullptr, 10) : 0;
  if (minutes <= 0) {
    std::fputs("usage: quillmere-soak MINUTES SERVER\n", stderr);
    return 2;
  }
  // A server that has ended is an error of the call that finds it so.
  std::signal(SIGPIPE, SIG_IGN);
  sigset_t signals;
  sigemptyset(&signals);
  for (const int each : {SIGALRM, SIGINT, SIGTERM}) sigaddset(&signals, each);
  ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  try {
    quillmere::bench::Soak soak(arguments[2]);
    soak.watch(signals);
    return soak.run(std::chrono::minutes(minutes)) ? 0 : 1;
  } catch (const std::exception& failure) {
    std::printf("FAILED: %s\n", failure.what());
    return 1;
  }
}
