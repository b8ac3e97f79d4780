// The real program where a resource runs short, where its streams are unusual ones, and where it or
// its client is ended from outside.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <filesystem>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "control/control_frame.hpp"
#include "harness/desktop_app.hpp"
#include "harness/patience.hpp"
#include "harness/system.hpp"
#include "support/running_server.hpp"

namespace quillmere {
namespace {

/// A sanitizer needs terabytes of address space, so with one there is nothing to limit.
const bool isSanitized = !std::string_view(QUILLMERE_SANITIZERS).empty();

const std::string succeeded = "Quillmere tool call succeeded.";
const std::string pong = R"({"jsonrpc":"2.0","id":"ping","result":{}})";

/// Whether a limit can be put up again by the process that it holds for.
enum class Limit { soft, hard };

/// Sets what a process, or with 0 this one, may have of a resource. Returns what it was before, or
/// nothing when it can't be set.
[[nodiscard]] std::optional<rlim_t> limit(pid_t process, __rlimit_resource resource, rlim_t most,
                                          Limit kind = Limit::soft) {
  rlimit before{};
  if (::prlimit(process, resource, nullptr, &before) != 0) return std::nullopt;
  const rlim_t hardest = kind == Limit::hard ? most : std::max(before.rlim_max, most);
  const rlimit after{.rlim_cur = most, .rlim_max = hardest};
  if (::prlimit(process, resource, &after, nullptr) != 0) return std::nullopt;
  return before.rlim_cur;
}

/// A control frame with the largest answer.
std::string largestAnswer() {
  const std::string_view begin = R"({"ok":true,"image":")";
  return controlFrame(std::string(begin) + std::string(maxControlResponseBytes - 22, 'A') + "\"}");
}

struct Limits : RunningServer {
  using RunningServer::RunningServer;

  /// How often each text has come, and the ids that it came with.
  std::map<std::string, std::size_t> texts;
  std::set<std::string> ids;

  void count(const std::string& outcome) {
    const std::size_t colon = outcome.find(": ");
    EXPECT_TRUE(ids.insert(outcome.substr(0, colon)).second) << "answered twice: " << outcome;
    ++texts[outcome.substr(colon + 2)];
  }
};

struct LimitsInsideAnApp : Limits {
  LimitsInsideAnApp() : Limits("com.tallowbrook.wickfern") {}
};

TEST_F(LimitsInsideAnApp, NoCallReachesAnotherAppWhenDescriptorsAreShort) {
  const std::size_t calls = isSanitized ? 1'000 : 10'000;
  constexpr std::size_t atOnce = 64;
  const DesktopApp app(home.releaseSocket());
  std::atomic<int> strays = 0;
  const DesktopApp other(home.debugSocket(), [&](const AppConnection& connection) {
    ++strays;
    static_cast<void>(connection.receive());
    connection.answer({{"ok", true}});
  });
  ASSERT_TRUE(limit(server.processID(), RLIMIT_NOFILE, 24, Limit::hard));
  std::size_t sent = 0;
  for (std::size_t answered = 0; answered < calls;) {
    for (; sent < calls && sent < answered + atOnce; ++sent) call(static_cast<std::int64_t>(sent));
    if (const auto connection = app.acceptUnless(server)) {
      EXPECT_TRUE(connection->receive());
      connection->answer({{"ok", true}});
    } else {
      count(nextShort());
      ++answered;
    }
  }
  EXPECT_EQ(0, strays);
  const std::size_t failed = texts["-32000 Could not create Quillmere MCP control socket."];
  EXPECT_EQ(calls, texts[succeeded] + failed);
  EXPECT_LT(calls / 20, texts[succeeded]);
  EXPECT_LT(calls / 20, failed) << "descriptors were not short enough";
}

TEST(DescriptorLimit, IsRaisedAsFarAsItMay) {
  const TemporaryHome home;
  ServerProcess server({.program = "/bin/sh",
                        .arguments = {"-c", "ulimit -Sn 64 && exec \"$0\"", QUILLMERE_SERVER},
                        .home = home.path()});
  server.send("{\"jsonrpc\":\"2.0\",\"id\":0,\"method\":\"ping\"}\n");
  ASSERT_TRUE(server.receive());
  rlimit now{};
  ASSERT_EQ(0, ::prlimit(server.processID(), RLIMIT_NOFILE, nullptr, &now));
  EXPECT_LT(64U, now.rlim_max);
  EXPECT_EQ(now.rlim_max, now.rlim_cur);
}

TEST_F(Limits, TwoThousandCallsWaitAtOnceAndAreAnsweredOrCancelled) {
  // The sanitizers start threads so slowly, ThreadSanitizer above all, that the first calls would
  // wait for too long.
  const std::int64_t calls = isSanitized ? 300 : 2'000;
  for (const pid_t process : {0, server.processID()}) {
    if (!limit(process, RLIMIT_NOFILE, static_cast<rlim_t>(calls) + 100)) {
      GTEST_SKIP() << "\nSKIPPED: too few descriptors for this are available here (ulimit -Hn).";
    }
  }
  const DesktopApp app(home.releaseSocket());
  std::vector<AppConnection> held;
  for (std::int64_t id = 0; id < calls; ++id) {
    call(id);
    auto connection = app.acceptUnless(server);
    ASSERT_TRUE(connection) << nextShort();
    held.push_back(std::move(*connection));
  }
  request("ping", "ping");
  EXPECT_EQ(pong, next());
  for (std::int64_t id = 0; id < calls; id += 2) cancel(id);
  for (std::size_t id = 0; id < held.size(); id += 2) held[id].waitUntilClosed();
  for (std::size_t id = 1; id < held.size(); id += 2) {
    held[id].answer({{"ok", true}});
    EXPECT_EQ(std::to_string(id) + ": " + succeeded, nextShort());
  }
}

struct StreamCase {
  std::string_view name;
  /// What a shell does to the program's streams. Input that it redirects holds `script`.
  std::string redirection;
  /// The ids of the answers.
  std::vector<std::string> answered;
};

TEST(Streams, AreReadToTheirEndAndEndTheProgramWhenTheyAreNoneAtAll) {
  const TemporaryHome home;
  const std::string script =
      "{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"ping\"}\n\n"
      "Content-Length: 40\n\n{\"jsonrpc\":\"2.0\",\"id\":2,\"method\":\"ping\"}";
  const std::string file = home.write("script", script);
  int master = -1;
  int slave = -1;
  std::array<char, 64> terminal{};
  ASSERT_EQ(0, ::openpty(&master, &slave, terminal.data(), nullptr, nullptr));
  const Descriptor person(master);
  const Descriptor open(slave);
  // The end of a last line without line feed, and the end of input.
  const std::string typed = script + "\4\4";
  ASSERT_EQ(std::ssize(typed), ::write(master, typed.data(), typed.size()));

  const StreamCase cases[] = {
      {"input from a file", "<" + file, {"1", "2"}},
      {"input from a terminal", "<" + std::string(terminal.data()), {"1", "2"}},
      {"input closed", "<&-", {}},
      {"output closed", ">&-", {}},
      {"output full", ">/dev/full", {}},
  };
  for (const StreamCase& each : cases) {
    SCOPED_TRACE(each.name);
    ServerProcess server({.program = "/bin/sh",
                          .arguments = {"-c", "exec \"$0\" " + each.redirection, QUILLMERE_SERVER},
                          .home = home.path()});
    if (each.redirection.front() == '>') server.send(script);
    std::vector<std::string> answered;
    while (const auto message = server.receive()) {
      answered.emplace_back(message->object().find("id")->text());
    }
    EXPECT_EQ(each.answered, answered);
    EXPECT_EQ(0, server.waitForExit());
  }
}

/// From now on what a process of ours leaves running becomes ours.
void inheritOrphans() {
  ASSERT_EQ(0, ::prctl(PR_SET_CHILD_SUBREAPER, 1));
}

TEST_F(Limits, ASignalEndsTheProgramAtOnceAndNoProcessIsLeft) {
  inheritOrphans();
  const DesktopApp app(home.releaseSocket());
  call(1);
  const AppConnection held = app.accept();
  ASSERT_TRUE(held.receive());
  ASSERT_EQ(0, ::kill(server.processID(), SIGTERM));
  EXPECT_EQ(128 + SIGTERM, server.waitForExit());
  EXPECT_EQ(0U, held.waitUntilClosed());
  EXPECT_EQ(-1, ::waitpid(-1, nullptr, WNOHANG)) << "a child of the server's";
}

/// What a forked process does: begins to read an answer, reports its server's number and waits for
/// its own end. An exception ends it too, and never runs on into what was forked.
[[noreturn]] void beAClient(const TemporaryHome& home, const Descriptor& toTest) noexcept {
  // It is to end by itself.
  ServerProcess server({.program = QUILLMERE_SERVER, .home = home.path(), .diesWithParent = false});
  server.send(
      "{\"jsonrpc\":\"2.0\",\"id\":0,\"method\":\"initialize\"}\n"
      "{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"resources/read\","
      "\"params\":{\"uri\":\"quillmere://devices\"}}\n");
  static_cast<void>(server.receive());
  static_cast<void>(server.receiveBytes(1));
  const pid_t number = server.processID();
  static_cast<void>(!::write(toTest.number(), &number, sizeof number));
  for (;;) ::pause();
}

/// A child of ours, killed at the latest when it goes out of scope.
struct Child {
  pid_t number;

  explicit Child(pid_t process) : number(process) {}
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  ~Child() { kill(); }
  void kill() {
    if (number <= 0) return;
    ::kill(number, SIGKILL);
    ::waitpid(std::exchange(number, -1), nullptr, 0);
  }
};

TEST(Client, KilledInTheMiddleOfAnAnswerTakesTheServerWithIt) {
  inheritOrphans();
  const TemporaryHome home;
  const DesktopApp app(home.releaseSocket());
  Channel channel = makePipe();
  Child client(::fork());
  ASSERT_LE(0, client.number);
  if (client.number == 0) beAClient(home, channel.writeEnd);
  channel.writeEnd = Descriptor();
  const AppConnection connection = app.accept();
  ASSERT_TRUE(connection.receive());
  ASSERT_TRUE(connection.send(largestAnswer()));
  pid_t server = -1;
  const int fromClient = channel.readEnd.number();
  waitUntilReadable(fromClient, "the client to begin to read its answer");
  ASSERT_EQ(sizeof server, ::read(fromClient, &server, sizeof server));
  client.kill();
  int status = -1;
  ASSERT_TRUE(endsWithin(server, patience())) << "the server lives on";
  EXPECT_EQ(server, ::waitpid(server, &status, 0));
  EXPECT_EQ(0, status);
}

}  // namespace
}  // namespace quillmere
