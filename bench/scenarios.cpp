#include "bench/scenarios.hpp"

#include <string>
#include <vector>

#include "bench/payloads.hpp"
#include "bench/statistics.hpp"

namespace quillmere::bench {

namespace {

using Clock = std::chrono::steady_clock;
using Budget = std::chrono::milliseconds;

template <typename Unit>
double in(Clock::duration duration) {
  return std::chrono::duration<double, typename Unit::period>(duration).count();
}

using std::chrono::microseconds;
using std::chrono::milliseconds;

/// The median of what `sample` returns, called until `budget` is used up.
template <typename Sample>
double medianSample(Budget budget, Sample sample) {
  std::vector<double> samples;
  const auto end = Clock::now() + budget;
  do {
    samples.push_back(sample());
  } while (Clock::now() < end);
  return median(std::move(samples));
}

/// How long the answer to `bytes` takes.
template <typename Unit>
double roundTrip(Session& session, std::string_view bytes) {
  const auto begin = Clock::now();
  session.send(bytes);
  static_cast<void>(session.receive());
  return in<Unit>(Clock::now() - begin);
}

/// Round trips of one message again and again.
template <typename Unit>
double roundTrips(Contender& contender, Budget budget, std::string_view bytes) {
  Session& session = contender.session();
  static_cast<void>(roundTrip<Unit>(session, bytes));
  return medianSample(budget, [&] { return roundTrip<Unit>(session, bytes); });
}

double start(Contender& contender, Budget budget) {
  const std::string initialize = initializeRequest();
  return medianSample(budget, [&] {
    const auto begin = Clock::now();
    const auto session = contender.start();
    session->send(initialize);
    static_cast<void>(session->receive());
    return in<milliseconds>(Clock::now() - begin);
  });
}

double ping(Contender& contender, Budget budget) {
  return roundTrips<microseconds>(contender, budget, request(1, "ping"));
}

double longLine(Contender& contender, Budget budget) {
  std::string params = R"({"padding":")" + std::string(1'048'400, 'x') + "\"}";
  return roundTrips<microseconds>(contender, budget, request(1, "ping", params));
}

double listTools(Contender& contender, Budget budget) {
  return roundTrips<microseconds>(contender, budget, request(1, "tools/list"));
}

double call(Contender& contender, Budget budget) {
  return roundTrips<microseconds>(contender, budget, callRequest(1, answers::small));
}

double callWithText(Contender& contender, Budget budget) {
  const std::string text(16'384, 'x');
  return roundTrips<microseconds>(contender, budget, callRequest(1, answers::small, text));
}

double callWithHeader(Contender& contender, Budget budget) {
  return roundTrips<microseconds>(contender, budget, withHeader(callRequest(1, answers::small)));
}

double image4Mb(Contender& contender, Budget budget) {
  return roundTrips<milliseconds>(contender, budget, callRequest(1, answers::image4Mb));
}

double image20Mb(Contender& contender, Budget budget) {
  return roundTrips<milliseconds>(contender, budget, callRequest(1, answers::image20Mb));
}

double uiNodes(Contender& contender, Budget budget) {
  return roundTrips<milliseconds>(contender, budget, callRequest(1, answers::uiNodes));
}

double callsInFlight(Contender& contender, Budget budget) {
  constexpr int inFlight = 64;
  Session& session = contender.session();
  int id = 0;
  int answered = 0;
  const auto begin = Clock::now();
  const auto end = begin + budget;
  for (; id < inFlight; ++id) session.send(callRequest(id, answers::small));
  for (; answered < id; ++answered) {
    static_cast<void>(session.receive());
    if (Clock::now() < end) session.send(callRequest(id++, answers::small));
  }
  return answered / in<std::chrono::seconds>(Clock::now() - begin);
}

double heldCalls(Contender& contender, Budget budget) {
  constexpr int atOnce = 200;
  Session& session = contender.session();
  return medianSample(budget, [&] {
    const auto begin = Clock::now();
    for (int id = 0; id < atOnce; ++id) session.send(callRequest(id, answers::held));
    for (int id = 0; id < atOnce; ++id) static_cast<void>(session.receive());
    return in<milliseconds>(Clock::now() - begin);
  });
}

double cancel(Contender& contender, Budget budget) {
  Session& session = contender.session();
  int id = 0;
  return medianSample(budget, [&] {
    session.send(callRequest(++id, answers::none));
    contender.app.waitForArrival();
    const std::string cancellation =
        R"({"jsonrpc":"2.0","method":"notifications/cancelled","params":{"requestId":)" +
        std::to_string(id) + "}}\n";
    const auto sent = Clock::now();
    session.send(cancellation);
    const std::chrono::nanoseconds broken(contender.app.waitForBreak());
    return in<microseconds>(broken - sent.time_since_epoch());
  });
}

double processorTime(Contender& contender, Budget budget) {
  Session& session = contender.session();
  const std::string line = callRequest(1, answers::small);
  const auto before = session.processorTime();
  int calls = 0;
  for (const auto end = Clock::now() + budget; Clock::now() < end; ++calls) {
    static_cast<void>(roundTrip<microseconds>(session, line));
  }
  return in<milliseconds>(session.processorTime() - before) * 1000 / calls;
}

double idleMemory(Contender& contender, Budget /*budget*/) {
  const auto session = contender.startInitialized();
  static_cast<void>(roundTrip<microseconds>(*session, request(1, "ping")));
  return session->proportionalMemory();
}

double usedMemory(Contender& contender, Budget /*budget*/) {
  const auto session = contender.startInitialized();
  for (int id = 1; id <= 100; ++id) {
    static_cast<void>(roundTrip<microseconds>(*session, callRequest(id, answers::small)));
  }
  return session->proportionalMemory();
}

double peakOf(Contender& contender, const char* answer, std::size_t answerBytes) {
  const auto session = contender.startInitialized();
  for (int id = 1; id <= 3; ++id) {
    static_cast<void>(roundTrip<milliseconds>(*session, callRequest(id, answer)));
  }
  return session->peakMemory() * 1024 / static_cast<double>(answerBytes);
}

double peakMemory4Mb(Contender& contender, Budget /*budget*/) {
  return peakOf(contender, answers::image4Mb, image4MbBytes);
}

double peakMemory20Mb(Contender& contender, Budget /*budget*/) {
  return peakOf(contender, answers::image20Mb, image20MbBytes);
}

constexpr Bar ratio(double value) {
  return {Bar::Kind::ratio, value};
}
constexpr Bar figure(double value) {
  return {Bar::Kind::figure, value};
}

constexpr Scenario all[] = {
    {.name = "start, exec to initialize answered",
     .unit = "ms",
     .measure = start,
     .bar = ratio(1.5)},
    {.name = "ping", .unit = "µs", .measure = ping, .bar = ratio(1.5)},
    {.name = "ping in a line of 1 MB", .unit = "µs", .measure = longLine},
    {.name = "tools/list", .unit = "µs", .measure = listTools},
    {.name = "tools/call, pipes", .unit = "µs", .measure = call, .bar = ratio(1.4)},
    {.name = "tools/call, socket pairs",
     .unit = "µs",
     .measure = call,
     .bar = ratio(1.4),
     .streams = Streams::socketPairs},
    {.name = "tools/call, Content-Length framing",
     .unit = "µs",
     .measure = callWithHeader,
     .inHeaderFraming = true},
    {.name = "tools/call with 16 KB of text",
     .unit = "µs",
     .measure = callWithText,
     .bar = ratio(2)},
    {.name = "64 calls in flight",
     .unit = "calls/s",
     .measure = callsInFlight,
     .bar = ratio(0.7),
     .onOneProcessor = false,
     .moreIsBetter = true},
    {.name = "200 calls held 50 ms, at once",
     .unit = "ms",
     .measure = heldCalls,
     .bar = ratio(1.2),
     .onOneProcessor = false},
    {.name = "answer of 4 MB, an image",
     .unit = "ms",
     .measure = image4Mb,
     .bar = ratio(2),
     .onOneProcessor = false},
    {.name = "answer of 20 MB, an image",
     .unit = "ms",
     .measure = image20Mb,
     .bar = ratio(2),
     .onOneProcessor = false},
    {.name = "answer of 20,000 UI nodes",
     .unit = "ms",
     .measure = uiNodes,
     .onOneProcessor = false},
    {.name = "cancellation, sent to connection broken",
     .unit = "µs",
     .measure = cancel,
     .bar = ratio(1.3)},
    {.name = "processor time of 1,000 calls",
     .unit = "ms",
     .measure = processorTime,
     .bar = ratio(2)},
    {.name = "memory once started (PSS)",
     .unit = "KiB",
     .measure = idleMemory,
     .bar = figure(1536)},
    {.name = "memory after 100 calls (PSS)",
     .unit = "KiB",
     .measure = usedMemory,
     .bar = figure(1536)},
    {.name = "peak memory, answer of 4 MB",
     .unit = "× answer",
     .measure = peakMemory4Mb,
     .bar = figure(2.5)},
    {.name = "peak memory, answer of 20 MB",
     .unit = "× answer",
     .measure = peakMemory20Mb,
     .bar = figure(2.5)},
};

}  // namespace

std::span<const Scenario> scenarios() {
  return all;
}

}  // namespace quillmere::bench
