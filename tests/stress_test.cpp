// Thousands of calls, right and wrong, up to 64 at a time, cancelled at random, before an app that
// answers, waits, cuts off and resets at random: each must come to the end that its fate orders.
// What the server holds when it rests shows whether it lets go of everything.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <iostream>
#include <mutex>
#include <random>
#include <set>
#include <utility>

#include "control/control_frame.hpp"
#include "harness/desktop_app.hpp"
#include "harness/holdings.hpp"
#include "peers/patience.hpp"
#include "support/running_server.hpp"

namespace quillmere {
namespace {

/// What becomes of a call. Its `taskId` begins with the letter; its id follows.
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

std::uint64_t setting(const char* name, std::uint64_t otherwise) {
  const char* text = std::getenv(name);
  return text != nullptr ? std::strtoull(text, nullptr, 10) : otherwise;
}

struct Request {
  std::string taskId;
  bool isCancelled = false;
  bool isAnswered = false;

  [[nodiscard]] bool isOwed() const { return !isCancelled && !isAnswered; }
};

struct Stress : RunningServer {
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
  DesktopApp app{home.releaseSocket(), [this](const AppConnection& each) { serve(each); }};
  /// By their ids.
  std::vector<Request> requests;
  std::set<std::size_t> holds;
  /// Answers that must still come: to requests, and, without an id, to broken frames.
  std::size_t owed = 0;
  std::size_t brokenFrames = 0;

  /// How long the text of an answer is: sometimes longer than a socket takes at once, and in a soak
  /// as long as screenshots are.
  [[nodiscard]] std::size_t textLength(std::size_t id) const {
    if (!isSoak) return id % 100 == 77 ? 300'000 : 10;
    if (id % 1'000 == 77) return 20 << 20;
    return id % 100 == 77 ? 1 << 20 : id % 10 == 7 ? 16 << 10 : 10;
  }

  /// The app's part: does with a call what its `taskId` says.
  void serve(const AppConnection& connection) {
    const auto prefix = connection.receiveBytes(controlPrefixBytes);
    if (!prefix) return;
    // All but the last byte, which can only be the closing brace.
    const auto body = connection.receiveBytes(controlBodyLength(*prefix) - 1);
    if (!body) return;
    const auto request = parseJson(*body + "}");
    const std::string taskId(request->object().findString("taskId")->view());
    const auto fate = static_cast<Fate>(taskId.front());
    {
      std::unique_lock hold(lock);
      ++_calls;
      changed.notify_all();
      constexpr std::int64_t laterCalls = 8;
      const auto until = fate == answeredLater ? _calls + laterCalls : 0;
      waitUntil("later calls", changed, hold, [&] { return _calls >= until || _isLast; });
    }
    if (fate == reset || !connection.receiveBytes(1)) return;
    if (fate == held) {
      EXPECT_EQ(0U, connection.waitUntilClosed());
      return;
    }
    const std::string text(textLength(std::stoul(taskId.substr(1))), 'x');
    const std::string frame =
        controlFrame(JsonText{{"ok", true}, {"taskId", taskId}, {"text", text}}.str());
    const bool isInPieces = fate == cutOff || fate == answeredInPieces;
    // Sometimes in the middle of the length.
    const std::size_t part = taskId.back() == '0' ? 2 : frame.size() / 2;
    if (isInPieces) connection.send(frame.substr(0, part));
    if (fate != cutOff) connection.send(isInPieces ? frame.substr(part) : frame);
  }

  /// Whether whatever still waits for later calls is answered.
  void expectNoMoreCalls(bool isLast) {
    const std::lock_guard hold(lock);
    _isLast = isLast;
    changed.notify_all();
  }

  std::size_t below(std::size_t end) { return random() % end; }

  void send(Fate fate) {
    const std::size_t id = requests.size();
    requests.push_back({.taskId = static_cast<char>(fate) + std::to_string(id)});
    ++owed;
    if (fate == held) holds.insert(id);
    JsonText arguments{{"taskId", requests[id].taskId}};
    if (fate == invalid) arguments.set("taskName", 5);
    request(static_cast<std::int64_t>(id), "tools/call",
            {{"name", "quillmere.devices.list"}, {"arguments", arguments}});
  }

  void sendAny() {
    constexpr std::string_view fates = "aaaapplllhhccri";
    send(static_cast<Fate>(fates[below(fates.size())]));
    // One of the latest requests, whether or not it is over.
    const std::size_t latest = std::min(requests.size(), 2 * mostInFlight);
    if (below(8) == 0) cancelOne(requests.size() - 1 - below(latest));
    if (below(64) > 0) return;
    server.send("Content-Length: 5x\n\nno JSON\n");
    ++brokenFrames;
    ++owed;
  }

  void cancelOne(std::size_t id) {
    holds.erase(id);
    owed -= requests[id].isOwed() ? 1 : 0;
    requests[id].isCancelled = true;
    cancel(static_cast<std::int64_t>(id));
  }

  /// Takes the next message. Returns false at the end and for a pong.
  bool receive() {
    const auto document = server.receive();
    if (!document || document->object().findString("id")) return false;
    const JsonObject message = document->object();
    const auto id = message.findNumber("id");
    if (!id) {
      EXPECT_LT(0U, brokenFrames--) << message.text();
      --owed;
      return true;
    }
    Request& request = requests.at(static_cast<std::size_t>(id->integer().value()));
    EXPECT_FALSE(request.isAnswered) << "a second answer: " << message.text();
    owed -= request.isOwed() ? 1 : 0;
    request.isAnswered = true;
    const std::string start = std::string(id->text()) + ": ";
    switch (request.taskId.front()) {
      case held:
        ADD_FAILURE() << "an answer out of nothing: " << message.text();
        break;
      case invalid:
        EXPECT_EQ(start + "-32602 taskName must be a string.", shortOf(message));
        break;
      case cutOff:
      case reset:
        EXPECT_EQ(start + "-32000 Quillmere closed the MCP control connection.", shortOf(message));
        break;
      default:
        EXPECT_EQ(start + succeeded, shortOf(message));
        const auto result = message.findObject("result");
        const auto content = result ? result->findObject("structuredContent") : std::nullopt;
        EXPECT_TRUE(content && content->findString("taskId") == request.taskId) << message.text();
    }
    return true;
  }

  /// Waits until the server has no more than so many threads, and takes what it still says.
  void waitForRest(std::size_t threads) {
    waitUntil("idle threads to end", [&] {
      request("ping", "ping");
      while (receive()) {
      }
      return holdingsOf(server.processID()).threads <= threads;
    });
  }

  /// Sends and receives as many requests as are wanted, and ends what still runs.
  void stress() {
    requests.clear();
    expectNoMoreCalls(false);
    while (requests.size() < wanted) {
      if (holds.size() > mostHeld) {
        cancelOne(*std::next(holds.begin(), static_cast<long>(below(holds.size()))));
      } else if (owed < mostInFlight) {
        sendAny();
      } else {
        ASSERT_TRUE(receive());
      }
    }
    while (!holds.empty()) cancelOne(*holds.begin());
    expectNoMoreCalls(true);
    while (owed > 0) ASSERT_TRUE(receive());
    app.waitUntilIdle();
  }
};

/// In KiB, above a fresh process. Some 2,000 are left whatever the load: stacks that the C library
/// keeps, and a heap that was larger. 10,000 records that nobody lets go of would be 6,000 more.
constexpr double mostAtRest = 4'096;

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
  // Counted with a call before: a sanitizer starts a thread of its own with the program's first
  // one.
  send(held);
  request("ping", "ping");
  EXPECT_FALSE(receive());
  const std::size_t threads = holdingsOf(server.processID()).threads - 1;
  cancelOne(0);
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
