// Thousands of calls, valid and invalid, up to 64 at a time, cancelled at random, with an app that
// answers, waits, cuts off and resets at random. Each must end as its fate says. What the server
// holds when it is idle shows whether it releases everything.
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

/// What happens to a call. Its `taskId` is this letter and its id.
enum Fate : char {
  answered = 'a',
  answeredInPieces = 'p',
  /// Not until some later calls have come, or no more will come.
  answeredLater = 'l',
  /// Never answered: the client must cancel it.
  held = 'h',
  cutOff = 'c',
  /// Closed with a byte unread, which the server sees as a reset connection.
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
  /// Small, so that calls that only a cancellation ends never fill the window.
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
  /// Responses that must still come: to requests, and, without an id, to broken frames.
  std::size_t owed = 0;
  std::size_t brokenFrames = 0;

  /// Length of an app response's text: sometimes more than a socket takes at once, and in a soak up
  /// to the size of screenshots.
  [[nodiscard]] std::size_t textLength(std::size_t id) const {
    if (!isSoak) return id % 100 == 77 ? 300'000 : 10;
    if (id % 1'000 == 77) return 20 << 20;
    return id % 100 == 77 ? 1 << 20 : id % 10 == 7 ? 16 << 10 : 10;
  }

  /// The app's part: treats a call as its `taskId` says.
  void serve(const AppConnection& connection) {
    const auto prefix = connection.receiveBytes(controlPrefixBytes);
    if (!prefix) return;
    // All but the last byte, which is always the closing brace.
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

  /// Sets whether there are no more calls, so that waiting ones get their responses.
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
    // One of the latest requests, even if it is over.
    const std::size_t latest = std::min(requests.size(), 2 * mostInFlight);
    if (below(8) == 0) cancelOne(requests.size() - 1 - below(latest));
    if (below(64) > 0) return;
    server.send("Content-Length: 5x\n\nnot JSON\n");
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
    EXPECT_FALSE(request.isAnswered) << "a second response: " << message.text();
    owed -= request.isOwed() ? 1 : 0;
    request.isAnswered = true;
    const std::string start = std::string(id->text()) + ": ";
    switch (request.taskId.front()) {
      case held:
        ADD_FAILURE() << "a response to a held call: " << message.text();
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

  /// Waits until the server has at most this many threads, and reads its remaining messages.
  void waitForRest(std::size_t threads) {
    waitUntil("idle threads to end", [&] {
      request("ping", "ping");
      while (receive()) {
      }
      return holdingsOf(server.processID()).threads <= threads;
    });
  }

  /// Sends the wanted number of requests, receives the responses, and ends what is still running.
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

/// In KiB, above a fresh process. About 2,000 remain after any load: stacks that the C library
/// keeps, and a heap that was larger. 10,000 leaked records would be 6,000 more.
constexpr double mostAtRest = 4'096;

/// Resident memory at each rest, in KiB. The first is the warm-up. The lowest of the last three
/// must be hardly more than the lowest of the three after the first.
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

TEST_F(Stress, EachRequestGetsItsOwnResponseOnceOrNoneIfCancelledInTimeAndNothingLeaks) {
  constexpr std::size_t fewestRounds = 17;
  std::cout << "QUILLMERE_STRESS_SEED=" << seed << std::endl;
  // Counted after a first call: a sanitizer starts its own thread with the program's first one.
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
  // Sanitizers need extra memory.
  if (std::string_view(QUILLMERE_SANITIZERS).empty()) {
    EXPECT_GE(mostAtRest, rests.back() - fresh) << "KiB more than at the start";
  }
  server.closeInput();
  EXPECT_FALSE(receive());
  EXPECT_EQ(0, server.waitForExit());
}

}  // namespace
}  // namespace quillmere
