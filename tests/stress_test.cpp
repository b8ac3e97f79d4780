// Thousands of messages at once, right and wrong, cancelled at random, before an app that answers,
// waits, cuts off and resets at random: what each was sent with says what must come of it. And
// what the server holds when it rests shows whether it lets go of everything.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <iostream>
#include <map>
#include <mutex>
#include <random>
#include <set>
#include <utility>

#include "control/control_frame.hpp"
#include "harness/desktop_app.hpp"
#include "harness/holdings.hpp"
#include "harness/patience.hpp"
#include "harness/server_process.hpp"
#include "harness/temporary_home.hpp"
#include "support/json.hpp"

namespace quillmere {
namespace {

/// What becomes of a call. Its `taskId` begins with the letter.
enum Fate : char {
  answered = 'a',
  answeredInPieces = 'p',
  /// Until some later calls have come, or there will be none.
  answeredLater = 'l',
  /// Never answered: the client must cancel it.
  held = 'h',
  cutOff = 'c',
  /// Closed with a byte unread, which the server sees as a connection reset.
  reset = 'r',
  /// Refused by the server itself.
  invalid = 'i',
};

bool isToFail(Fate fate) {
  return fate == cutOff || fate == reset || fate == invalid;
}

/// How long the text of an answer is: sometimes longer than a socket takes at once, and in a soak
/// as long as screenshots are.
std::size_t textLength(std::size_t place, bool isSoak) {
  if (!isSoak) return place % 100 == 77 ? 300'000 : 10;
  if (place % 1'000 == 77) return 20 << 20;
  return place % 100 == 77 ? 1 << 20 : place % 10 == 7 ? 16 << 10 : 10;
}

std::uint64_t setting(const char* name, std::uint64_t otherwise) {
  const char* text = std::getenv(name);
  return text != nullptr ? std::strtoull(text, nullptr, 10) : otherwise;
}

struct Request {
  std::int64_t id;
  Fate fate;
  /// A cancellation has reached it, if it was not over by then.
  bool isCancelled = false;
  /// Its own answer has come.
  bool isAnswered = false;
};

/// What happened under one id.
struct SharedId {
  /// Places in the list of requests; a cancellation reaches the last one only.
  std::vector<std::size_t> requests = {};
  std::size_t cancelled = 0;
  std::size_t answers = 0;
  std::size_t errors = 0;

  /// Answers that must still come, at the least.
  [[nodiscard]] std::size_t owed() const {
    return requests.size() - std::min(requests.size(), cancelled + answers + errors);
  }
};

struct Stress : testing::Test {
  const std::chrono::minutes duration{setting("QUILLMERE_STRESS_MINUTES", 0)};
  const bool isSoak = duration.count() > 0;
  const std::size_t wanted = setting("QUILLMERE_STRESS_CALLS", 10'000);
  const std::uint64_t seed = setting("QUILLMERE_STRESS_SEED", std::random_device()());
  const std::size_t mostInFlight = isSoak ? 16 : 64;
  /// So few that the window never fills up with calls that only a cancellation ends.
  const std::size_t mostHeld = mostInFlight / 4;

  std::mt19937_64 random{seed};
  std::mutex lock;
  std::condition_variable changed;
  std::int64_t _calls = 0;
  bool _isLast = false;
  TemporaryHome home;
  DesktopApp app{home.releaseSocket(), [this](const AppConnection& each) { serve(each); }};
  ServerProcess server{{.program = QUILLMERE_SERVER, .home = home.path()}};
  std::vector<Request> requests;
  std::map<std::int64_t, SharedId> ids;
  std::set<std::size_t> holds;
  std::size_t owed = 0;
  /// Answered without an id.
  std::size_t brokenFrames = 0;

  /// Does with a call what its `taskId` says.
  void serve(const AppConnection& connection) {
    const auto prefix = connection.receiveBytes(controlPrefixBytes);
    if (!prefix) return;
    // All but the last byte, which can only be the closing brace.
    const auto body = connection.receiveBytes(controlBodyLength(*prefix) - 1);
    if (!body) return;
    std::unique_lock hold(lock);
    ++_calls;
    changed.notify_all();
    const auto request = parseJson(*body + "}");
    const std::string taskId(request->object().findString("taskId")->view());
    const auto fate = static_cast<Fate>(taskId.front());
    if (fate == answeredLater) {
      constexpr std::int64_t laterCalls = 8;
      waitUntil("later calls", changed, hold,
                [&, until = _calls + laterCalls] { return _calls >= until || _isLast; });
    }
    hold.unlock();
    if (fate == reset || !connection.receiveBytes(1)) return;
    if (fate == held) {
      EXPECT_EQ(0U, connection.waitUntilClosed());
      return;
    }
    const std::string text(textLength(std::stoul(taskId.substr(1)), isSoak), 'x');
    const std::string frame =
        controlFrame(JsonText{{"ok", true}, {"taskId", taskId}, {"text", text}}.str());
    const std::size_t half = taskId.back() == '0' ? 2 : frame.size() / 2;
    const bool isInPieces = fate == cutOff || fate == answeredInPieces;
    if (isInPieces) connection.send(frame.substr(0, half));
    if (fate != cutOff) connection.send(isInPieces ? frame.substr(half) : frame);
  }

  /// Whether whatever still waits for later calls is answered.
  void expectNoMoreCalls(bool isLast) {
    const std::lock_guard hold(lock);
    _isLast = isLast;
    changed.notify_all();
  }

  std::size_t below(std::size_t end) { return random() % end; }

  void send(Fate fate) {
    const std::size_t place = requests.size();
    auto id = static_cast<std::int64_t>(place);
    // What is held could not be cancelled any more if a later one took its id.
    if (place > 0 && below(8) == 0) {
      const std::int64_t other = requests[recent()].id;
      if (!holds.contains(ids[other].requests.back())) id = other;
    }
    if (fate == held) holds.insert(place);
    change(id, [&](SharedId& shared) { shared.requests.push_back(place); });
    requests.push_back({.id = id, .fate = fate});
    JsonText arguments{{"taskId", static_cast<char>(fate) + std::to_string(place)}};
    if (fate == invalid) arguments.set("taskName", 5);
    server.sendMessage(JsonText{
        {"jsonrpc", "2.0"},
        {"id", id},
        {"method", "tools/call"},
        {"params", JsonText{{"name", "quillmere.devices.list"}, {"arguments", arguments}}}});
  }

  /// One of the latest requests, whether or not it is over.
  std::size_t recent() {
    return requests.size() - 1 - below(std::min(requests.size(), 2 * mostInFlight));
  }

  Fate anyFate() {
    constexpr std::string_view fates = "aaaapplllhhccri";
    return static_cast<Fate>(fates[below(fates.size())]);
  }

  void sendBrokenFrame() {
    ++brokenFrames;
    server.send("Content-Length: 5x\n\nno JSON\n");
  }

  void cancel(std::int64_t id) {
    const std::size_t place = ids[id].requests.back();
    holds.erase(place);
    if (!std::exchange(requests[place].isCancelled, true)) {
      change(id, [](SharedId& shared) { ++shared.cancelled; });
    }
    server.sendMessage(JsonText{{"jsonrpc", "2.0"},
                                {"method", "notifications/cancelled"},
                                {"params", JsonText{{"requestId", id}}}});
  }

  /// Takes the next message. Returns false at the end and for a pong.
  bool receive() {
    const auto document = server.receive();
    if (!document || document->object().findString("id")) return false;
    const JsonObject message = document->object();
    const auto error = message.findObject("error");
    const auto number = message.findNumber("id");
    if (!number) {
      EXPECT_TRUE(error && brokenFrames-- > 0) << message.text();
      return true;
    }
    const std::int64_t id = number->integer().value();
    EXPECT_TRUE(ids.contains(id)) << id;
    if (error) {
      const bool isOurs = error->findNumber("code")->integer() == -32602;
      EXPECT_EQ(
          isOurs ? "taskName must be a string." : "Quillmere closed the MCP control connection.",
          *error->findString("message"));
      change(id, [](SharedId& shared) { ++shared.errors; });
      return true;
    }
    const auto payload = message.findObject("result")->findObject("structuredContent");
    const std::string taskId(payload->findString("taskId")->view());
    Request& request = requests.at(std::stoul(taskId.substr(1)));
    EXPECT_EQ(id, request.id) << "another's answer";
    EXPECT_FALSE(std::exchange(request.isAnswered, true)) << "a second answer";
    change(id, [](SharedId& shared) { ++shared.answers; });
    return true;
  }

  /// Sees to it that the server has read everything sent so far.
  void pingAndReceiveAll() {
    server.send("{\"jsonrpc\":\"2.0\",\"id\":\"ping\",\"method\":\"ping\"}\n");
    while (receive()) {
    }
  }

  template <typename Change>
  void change(std::int64_t id, Change apply) {
    SharedId& shared = ids[id];
    owed -= shared.owed();
    apply(shared);
    owed += shared.owed();
  }

  /// Waits until the server has no more than so many threads.
  void waitForRest(std::size_t threads) {
    waitUntil("idle threads to end", [&] {
      pingAndReceiveAll();
      return holdingsOf(server.processID()).threads <= threads;
    });
  }

  /// Sends and receives as many requests as are wanted, and ends what still runs.
  void stress() {
    expectNoMoreCalls(false);
    while (requests.size() < wanted) {
      if (holds.size() > mostHeld) {
        cancel(requests[*std::next(holds.begin(), static_cast<long>(below(holds.size())))].id);
      } else if (owed + brokenFrames >= mostInFlight) {
        ASSERT_TRUE(receive());
      } else {
        send(anyFate());
        if (below(8) == 0) cancel(requests[recent()].id);
        if (below(64) == 0) sendBrokenFrame();
      }
    }
    while (!holds.empty()) cancel(requests[*holds.begin()].id);
    expectNoMoreCalls(true);
    while (owed + brokenFrames > 0) ASSERT_TRUE(receive());
    app.waitUntilIdle();
  }

  /// Compares what has come with what had to, and forgets both.
  void settle() {
    for (const auto& [id, shared] : ids) {
      std::size_t due = 0;
      std::size_t possible = 0;
      for (const std::size_t place : shared.requests) {
        const Request& request = requests[place];
        const bool fails = isToFail(request.fate);
        EXPECT_TRUE(fails || request.isAnswered || request.isCancelled) << "no answer to " << place;
        if (fails) ++(request.isCancelled ? possible : due);
      }
      EXPECT_GE(shared.errors, due) << "under the id " << id;
      EXPECT_LE(shared.errors, due + possible) << "under the id " << id;
    }
    requests.clear();
    ids.clear();
  }
};

/// In KiB, above a fresh process.
constexpr double mostAtRest = 2'048;

/// What is resident at each rest, in KiB: the lowest of the last three must hardly be more than
/// that of the three after the first, which is the warm-up.
void expectNoGrowth(double fresh, const std::vector<double>& rests) {
  constexpr std::ptrdiff_t compared = 3;
  constexpr double mostGrowth = 1'024;
  const double growth = *std::min_element(rests.end() - compared, rests.end()) -
                        *std::min_element(rests.begin() + 1, rests.begin() + 1 + compared);
  std::cout << "resident memory grew by " << growth << " KiB over "
            << rests.size() - 1 - 2 * compared << " rounds, and is " << rests.back() - fresh
            << " KiB above a fresh process\n";
  EXPECT_GE(mostGrowth, growth);
}

TEST_F(Stress, EachRequestGetsItsOwnAnswerOnceOrNoneWhenCancelledInTimeAndNothingIsKept) {
  constexpr std::size_t fewestRounds = 17;
  std::cout << "QUILLMERE_STRESS_SEED=" << seed << std::endl;
  server.send("{\"jsonrpc\":\"2.0\",\"id\":\"hello\",\"method\":\"initialize\"}\n");
  ASSERT_TRUE(server.receive());
  // Counted with a call before: a sanitizer starts a thread of its own with the program's first
  // one.
  send(held);
  pingAndReceiveAll();
  const std::size_t threads = holdingsOf(server.processID()).threads - 1;
  cancel(0);
  waitForRest(threads);
  const std::size_t descriptors = holdingsOf(server.processID()).descriptors;
  const auto memory = [&] { return memoryOf(server.processID(), Memory::resident) / 1024; };
  const double fresh = memory();

  std::vector<double> rests;
  const auto begin = std::chrono::steady_clock::now();
  const auto time = [&] { return std::chrono::steady_clock::now() - begin; };
  do {
    stress();
    if (HasFatalFailure()) return;
    const double busy = memory();
    waitForRest(threads);
    settle();
    EXPECT_EQ(threads, holdingsOf(server.processID()).threads);
    EXPECT_EQ(descriptors, holdingsOf(server.processID()).descriptors);
    rests.push_back(memory());
    if (isSoak) {
      std::cout << std::chrono::floor<std::chrono::seconds>(time()).count() << " s, "
                << rests.size() * wanted << " calls: " << busy << " KiB at work, " << rests.back()
                << " KiB at rest" << std::endl;
    }
  } while (isSoak && !HasFailure() && (rests.size() < fewestRounds || time() < duration));
  if (isSoak && !HasFailure()) expectNoGrowth(fresh, rests);
  // Sanitizers take memory of their own.
  if (std::string_view(QUILLMERE_SANITIZERS).empty()) {
    EXPECT_GE(mostAtRest, rests.back() - fresh) << "KiB more than at the start";
  }
  server.closeInput();
  EXPECT_FALSE(receive());
  EXPECT_EQ(0, server.waitForExit());
}

}  // namespace
}  // namespace quillmere
