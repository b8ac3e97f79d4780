#include "bench/scenarios.hpp"

#include <ctime>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

#include "bench/payloads.hpp"
#include "bench/report.hpp"
#include "harness/holdings.hpp"

namespace quillmere::bench {

namespace {

using Clock = std::chrono::steady_clock;
using Budget = std::chrono::milliseconds;

/// `duration` in the scenario's unit, "µs" or "ms".
double in(const Scenario& scenario, Clock::duration duration) {
  return std::chrono::duration<double, std::micro>(duration).count() /
         (scenario.unit == "ms" ? 1000 : 1);
}

/// The median of how long `sample` says that it took, called until `budget` is used up.
template <typename Sample>
double medianSample(const Scenario& scenario, Budget budget, Sample sample) {
  std::vector<double> samples;
  const auto end = Clock::now() + budget;
  do {
    samples.push_back(in(scenario, sample()));
  } while (Clock::now() < end);
  return median(std::move(samples));
}

/// How long the answer to `bytes` takes. Throws `std::runtime_error` when it is an error, of which
/// any figure would be wrong.
Clock::duration roundTrip(ServerProcess& session, std::string_view bytes) {
  const auto begin = Clock::now();
  session.send(bytes);
  const std::string_view head = receiveFrom(session).substr(0, 100);
  const auto duration = Clock::now() - begin;
  if (head.find(R"("error":)") != std::string_view::npos) {
    throw std::runtime_error("A server answers: " + std::string(head));
  }
  return duration;
}

double roundTrips(const Scenario& scenario, Contender& contender, Budget budget) {
  ServerProcess& session = contender.session();
  static_cast<void>(roundTrip(session, scenario.message));
  return medianSample(scenario, budget, [&] { return roundTrip(session, scenario.message); });
}

/// Of a process that has had nothing to do for three seconds, as between two steps of a model.
/// Several processes rest at the same time, so that one pause gives several samples.
double roundTripAfterPause(const Scenario& scenario, Contender& contender, Budget /*budget*/) {
  std::vector<std::unique_ptr<ServerProcess>> sessions(5);
  for (auto& session : sessions) {
    session = contender.startInitialized();
    static_cast<void>(roundTrip(*session, scenario.message));
  }
  std::this_thread::sleep_for(std::chrono::seconds(3));
  std::vector<double> samples;
  samples.reserve(sessions.size());
  for (const auto& session : sessions) {
    samples.push_back(in(scenario, roundTrip(*session, scenario.message)));
  }
  return median(std::move(samples));
}

double start(const Scenario& scenario, Contender& contender, Budget budget) {
  return medianSample(scenario, budget, [&] {
    const auto begin = Clock::now();
    const auto session = contender.start();
    static_cast<void>(roundTrip(*session, scenario.message));
    return Clock::now() - begin;
  });
}

double callsInFlight(const Scenario& /*scenario*/, Contender& contender, Budget budget) {
  constexpr int inFlight = 64;
  ServerProcess& session = contender.session();
  int id = 0;
  int answered = 0;
  const auto begin = Clock::now();
  const auto end = begin + budget;
  for (; id < inFlight; ++id) session.send(callRequest(id, answers::small));
  for (; answered < id; ++answered) {
    static_cast<void>(receiveFrom(session));
    if (Clock::now() < end) session.send(callRequest(id++, answers::small));
  }
  return answered / std::chrono::duration<double>(Clock::now() - begin).count();
}

double heldCalls(const Scenario& scenario, Contender& contender, Budget budget) {
  constexpr int atOnce = 200;
  ServerProcess& session = contender.session();
  return medianSample(scenario, budget, [&] {
    const auto begin = Clock::now();
    for (int id = 0; id < atOnce; ++id) session.send(callRequest(id, answers::held));
    for (int id = 0; id < atOnce; ++id) static_cast<void>(receiveFrom(session));
    return Clock::now() - begin;
  });
}

double cancel(const Scenario& scenario, Contender& contender, Budget budget) {
  ServerProcess& session = contender.session();
  int id = 0;
  return medianSample(scenario, budget, [&] {
    session.send(callRequest(++id, answers::none));
    contender.app.waitForArrival();
    const std::string cancellation =
        R"({"jsonrpc":"2.0","method":"notifications/cancelled","params":{"requestId":)" +
        std::to_string(id) + "}}\n";
    const auto sent = Clock::now();
    session.send(cancellation);
    const std::chrono::nanoseconds broken(contender.app.waitForBreak());
    return broken - sent.time_since_epoch();
  });
}

/// What a process has taken so far, in all its threads, ended ones included.
std::chrono::nanoseconds processorTimeOf(pid_t process) {
  clockid_t clock{};
  timespec time{};
  if (::clock_getcpuclockid(process, &clock) != 0 || ::clock_gettime(clock, &time) != 0) {
    throw std::runtime_error("A server's processor time can't be read.");
  }
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

/// Of so many calls.
template <int wantedCalls>
double processorTime(const Scenario& scenario, Contender& contender, Budget budget) {
  ServerProcess& session = contender.session();
  const auto before = processorTimeOf(session.processID());
  int calls = 0;
  for (const auto end = Clock::now() + budget; Clock::now() < end; ++calls) {
    static_cast<void>(roundTrip(session, scenario.message));
  }
  return in(scenario, processorTimeOf(session.processID()) - before) * wantedCalls / calls;
}

/// How many characters the response has.
double lineLength(const Scenario& scenario, Contender& contender, Budget /*budget*/) {
  contender.session().send(scenario.message);
  return static_cast<double>(receiveFrom(contender.session()).size());
}

/// Of a process of its own that has answered the message so often and then rested. The share is
/// said as it is; the others, as what has come on top of what was resident after the handshake.
template <Memory memory, int times, int restSeconds = 0>
double memoryAfter(const Scenario& scenario, Contender& contender, Budget /*budget*/) {
  const auto session = contender.startInitialized();
  static_cast<void>(roundTrip(*session, request(1, "ping")));
  const double before =
      memory == Memory::share ? 0 : memoryOf(session->processID(), Memory::resident);
  for (int i = 0; i < times; ++i) {
    static_cast<void>(roundTrip(*session, scenario.message));
  }
  std::this_thread::sleep_for(std::chrono::seconds(restSeconds));
  return (memoryOf(session->processID(), memory) - before) /
         static_cast<double>(scenario.details.unitBytes);
}

constexpr auto share = memoryAfter<Memory::share, 1>;
constexpr auto shareAfter100 = memoryAfter<Memory::share, 100>;
/// From the second answer on it shows whether the room of the one before is used again.
constexpr auto peakGrowth = memoryAfter<Memory::peak, 3>;
constexpr auto growthAtRest = memoryAfter<Memory::resident, 1, 3>;

constexpr Bar ratio(double value) {
  return {Bar::Kind::ratio, value};
}
constexpr Bar figure(double value) {
  return {Bar::Kind::figure, value};
}

/// A ping in a line of 1 MB, with params of `head`, many pieces and `tail`.
std::string longPing(std::string_view head, std::string_view piece, std::string_view tail) {
  return request(1, "ping", filled(head, piece, tail, 1'048'500));
}

/// A call with `bytes` of text, as JSON has it.
std::string textCall(std::string_view phrase, std::size_t bytes = 16'384) {
  const std::string text = filled("", phrase, "", bytes);
  return callRequest(1, answers::small, "input.text", R"(,"text":")" + text + '"');
}

std::string uiCall(std::string_view answer) {
  return callRequest(1, answer, "ui.get_state", "");
}

/// A call for an answer of `bytes`.
std::string largeCall(const std::string& kind, std::size_t bytes) {
  return callRequest(1, kind + ' ' + std::to_string(bytes));
}

constexpr std::size_t mb4 = 4 << 20;
constexpr std::size_t mb20 = 20 << 20;
/// The largest answer that a server must take.
constexpr std::size_t mostBytes = 32 << 20;

constexpr Scenario::Details everywhere{.onOneProcessor = false};
constexpr Scenario::Details paused{.onOneProcessor = false, .mostRounds = 3};
constexpr Scenario::Details pausedOnOne{.mostRounds = 3};
constexpr Scenario::Details callsPerSecond{.onOneProcessor = false, .moreIsBetter = true};
constexpr Scenario::Details inHeaders{.inHeaderFraming = true};
constexpr Scenario::Details inKib{.unitBytes = 1024};
constexpr Scenario::Details once{.mostRounds = 1};

constexpr Scenario::Details besideServer{.compared = Scenario::Pair::serverAndCompat};
constexpr Scenario::Details compatEverywhere{.onOneProcessor = false,
                                             .compared = Scenario::Pair::floorAndCompat};

Scenario peak(std::string_view name, const std::string& kind, std::size_t bytes, double bar = 1.3,
              Scenario::Pair compared = Scenario::Pair::floorAndServer) {
  constexpr int rounds = 3;
  const Scenario::Details details{.unitBytes = bytes, .mostRounds = rounds, .compared = compared};
  return {name, "× answer", peakGrowth, largeCall(kind, bytes), figure(bar), details};
}

}  // namespace

std::span<const Scenario> scenarios() {
  static const std::string ping = request(1, "ping");
  static const std::string call = callRequest(1, answers::small);
  static const Scenario all[] = {
      {"start, exec to initialize answered", "ms", start, initializeRequest(), ratio(1.2)},
      {"ping", "µs", roundTrips, ping, ratio(1.3)},
      {"ping in a line of 1 MB", "µs", roundTrips, longPing(R"({"text":")", "x", "\"}")},
      {"tools/list", "µs", roundTrips, request(1, "tools/list"), ratio(2)},
      {"tools/call, pipes", "µs", roundTrips, call, ratio(1.3)},
      {"tools/call, socket pairs", "µs", roundTrips, call, ratio(1.3), {ChildStreams::socketPairs}},
      {"tools/call, Content-Length framing", "µs", roundTrips, withHeader(call), {}, inHeaders},
      {"tools/call with 16 KB of text", "µs", roundTrips, textCall("x"), ratio(1.8)},
      {"tools/call with 16 KB, Chinese, emoji", "µs", roundTrips,
       textCall("明天下午三点开会😀别忘了带上资料👍🏽"), ratio(1.8)},
      {"tools/call with 16 KB of quoting lines", "µs", roundTrips,
       textCall(
           R"(She wrote \"see you at three\", and he read it twice before he went back to the kitchen.\n)"),
       ratio(1.5)},
      {"tools/call with 10 KB of CR LF", "µs", roundTrips, textCall(R"(\r\n)", 20'480), ratio(1.5)},
      {"UI state of 80 nodes", "µs", roundTrips, uiCall("nodes 80"), ratio(1.7)},
      {"UI state of 2,000 nodes", "ms", roundTrips, uiCall("nodes 2000"), ratio(3.3), everywhere},
      {"UI state of 20,000 nodes", "ms", roundTrips, uiCall("nodes 20000"), ratio(3.2), everywhere},
      {"64 calls in flight", "calls/s", callsInFlight, {}, ratio(0.8), callsPerSecond},
      {"200 calls held 50 ms, at once", "ms", heldCalls, {}, ratio(1.15), everywhere},
      {"answer of 4 MB, an image", "ms", roundTrips, largeCall("image", mb4), ratio(2), everywhere},
      {"answer of 4 MB, slashes escaped", "ms", roundTrips, largeCall("escaped", mb4), ratio(2.5),
       everywhere},
      {"answer of 20 MB, an image", "ms", roundTrips, largeCall("image", mb20), ratio(2),
       everywhere},
      {"after 3 s: 80 nodes", "µs", roundTripAfterPause, uiCall("nodes 80"), ratio(1.7),
       pausedOnOne},
      {"after 3 s: 2,000 nodes", "ms", roundTripAfterPause, uiCall("nodes 2000"), ratio(3.3),
       paused},
      {"after 3 s: 20,000 nodes", "ms", roundTripAfterPause, uiCall("nodes 20000"), ratio(3.2),
       paused},
      {"after 3 s: 4 MB, an image", "ms", roundTripAfterPause, largeCall("image", mb4), ratio(2),
       paused},
      {"after 3 s: 20 MB, an image", "ms", roundTripAfterPause, largeCall("image", mb20), ratio(2),
       paused},
      {"cancellation, sent to connection broken", "µs", cancel, {}, ratio(1.25)},
      {"processor time of 1,000 calls", "ms", processorTime<1'000>, call, ratio(1.5)},
      {"memory once started (PSS)", "KiB", share, ping, figure(1126), inKib},
      {"memory after 100 calls (PSS)", "KiB", shareAfter100, call, figure(1536), inKib},
      peak("peak growth, 4 MB, an image", "image", mb4),
      peak("peak growth, 4 MB, slashes escaped", "escaped", mb4),
      peak("peak growth, 4 MB, Chinese", "article", mb4),
      peak("peak growth, 20 MB, an image", "image", mb20),
      peak("peak growth, 20 MB, slashes escaped", "escaped", mb20),
      peak("peak growth, 20 MB, Chinese", "article", mb20),
      {"peak growth, 33 MB of small numbers", "MB", peakGrowth, largeCall("numbers", mostBytes),
       figure(350), once},
      // Of the shortest values there are, which are the most to keep.
      {"growth 3 s after a ping of 1 MB", "MB", growthAtRest,
       longPing(R"({"samples":[)", "7,", "7]}"), figure(3), once},
      {"growth 3 s after an answer of 20 MB", "MB", growthAtRest, largeCall("numbers", mb20),
       figure(3), once},
      {"compat beside server: start", "ms", start, initializeRequest(), ratio(1.05), besideServer},
      {"compat beside server: ping", "µs", roundTrips, ping, ratio(1.05), besideServer},
      {"compat beside server: tools/call", "µs", roundTrips, call, ratio(1.1), besideServer},
      {"compat beside server: 80 nodes", "µs", roundTrips, uiCall("nodes 80"), ratio(1.4),
       besideServer},
      {"compat beside server: 2,000 nodes", "ms", roundTrips, uiCall("nodes 2000"), ratio(1.5),
       besideServer},
      {"compat: answer of 4 MB, an image", "ms", roundTrips, largeCall("image", mb4), ratio(2.5),
       compatEverywhere},
      peak("compat: peak growth, 4 MB, an image", "image", mb4, 1.5,
           Scenario::Pair::floorAndCompat),
      {"compat: photo, 1080 x 2400, processor time", "ms", processorTime<1>,
       callRequest(1, "photo"), figure(120), compatEverywhere},
      {"compat: photo, 1080 x 2400, length", "char", lineLength, callRequest(1, "photo"),
       figure(1'000'000), compatEverywhere},
  };
  return all;
}

}  // namespace quillmere::bench
