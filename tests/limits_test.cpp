// The real program when descriptors run short, and with unusual kinds of input.
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <map>
#include <set>
#include <vector>

#include "harness/desktop_app.hpp"
#include "support/running_server.hpp"

namespace quillmere {
namespace {

/// Starting threads is slow under the sanitizers.
const bool isSanitized = !std::string_view(QUILLMERE_SANITIZERS).empty();

struct InsideAnApp : RunningServer {
  InsideAnApp() : RunningServer("com.tallowbrook.wickfern") {}
};

TEST_F(InsideAnApp, NoCallReachesAnotherAppWhenDescriptorsAreShort) {
  const std::size_t calls = isSanitized ? 1'000 : 10'000;
  constexpr std::size_t atOnce = 64;
  const DesktopApp app(home.releaseSocket());
  std::atomic<int> strays = 0;
  const DesktopApp other(home.debugSocket(), [&](const AppConnection& connection) {
    ++strays;
    static_cast<void>(connection.receive());
    connection.answer({{"ok", true}});
  });
  const rlimit few{.rlim_cur = 24, .rlim_max = 24};
  ASSERT_EQ(0, ::prlimit(server.processID(), RLIMIT_NOFILE, &few, nullptr));
  std::map<std::string, std::size_t> texts;
  std::set<std::string> ids;
  std::size_t sent = 0;
  while (ids.size() < calls) {
    for (; sent < calls && sent < ids.size() + atOnce; ++sent)
      call(static_cast<std::int64_t>(sent));
    if (const auto connection = app.acceptUnless(server)) {
      EXPECT_TRUE(connection->receive());
      connection->answer({{"ok", true}});
    } else {
      const std::string outcome = nextShort();
      const std::size_t colon = outcome.find(": ");
      ASSERT_TRUE(ids.insert(outcome.substr(0, colon)).second) << "a second response: " << outcome;
      ++texts[outcome.substr(colon + 2)];
    }
  }
  EXPECT_EQ(0, strays);
  const std::size_t failed = texts["-32000 Could not create Quillmere MCP control socket."];
  EXPECT_EQ(calls, texts[succeeded] + failed);
  EXPECT_LT(calls / 20, texts[succeeded]);
  EXPECT_LT(calls / 20, failed) << "there were too many descriptors";
}

TEST(DescriptorLimit, IsRaisedToTheHardLimit) {
  const TemporaryHome home;
  ServerProcess server({.program = "/bin/sh",
                        .arguments = {"-c", "ulimit -Sn 64 && exec \"$0\"", QUILLMERE_SERVER}});
  server.send("{\"jsonrpc\":\"2.0\",\"id\":0,\"method\":\"ping\"}\n");
  ASSERT_TRUE(server.receive());
  rlimit now{};
  ASSERT_EQ(0, ::prlimit(server.processID(), RLIMIT_NOFILE, nullptr, &now));
  EXPECT_LT(64U, now.rlim_max);
  EXPECT_EQ(now.rlim_max, now.rlim_cur);
}

TEST(OutputLimit, EndsTheServerWithStatus0) {
  const TemporaryHome home;
  std::string pings;
  for (int i = 0; i < 100; ++i)
    pings += R"({"jsonrpc":"2.0","id":1,"method":"ping"})"
             "\n";
  ServerProcess server(
      {.program = "/bin/sh",
       .arguments = {"-c", R"(ulimit -f 1 && exec "$0" <"$1" >"$2")", QUILLMERE_SERVER,
                     home.write("pings", pings), home.path() + "/responses"}});
  EXPECT_EQ(0, server.waitForExit());
}

using Limits = RunningServer;

TEST_F(Limits, AnswersOrCancelsTwoThousandWaitingCalls) {
  // With a sanitizer the first of this many calls would wait too long.
  const std::int64_t calls = isSanitized ? 300 : 2'000;
  for (const pid_t process : {0, server.processID()}) {
    rlimit most{};
    ASSERT_EQ(0, ::prlimit(process, RLIMIT_NOFILE, nullptr, &most));
    most.rlim_cur = static_cast<rlim_t>(calls) + 100;
    most.rlim_max = std::max(most.rlim_max, most.rlim_cur);
    if (::prlimit(process, RLIMIT_NOFILE, &most, nullptr) != 0) {
      GTEST_SKIP() << "\nSKIPPED: too few descriptors are available here (ulimit -Hn).";
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

TEST(Input, IsReadToItsEndFromAFileOrATerminal) {
  const TemporaryHome home;
  const std::string script =
      "{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"ping\"}\n\n"
      "Content-Length: 40\n\n{\"jsonrpc\":\"2.0\",\"id\":2,\"method\":\"ping\"}";
  int master = -1;
  int slave = -1;
  std::array<char, 64> terminal{};
  ASSERT_EQ(0, ::openpty(&master, &slave, terminal.data(), nullptr, nullptr));
  const Descriptor person(master);
  const Descriptor open(slave);
  // Ends a last line without a line feed, then the input.
  const std::string typed = script + "\4\4";
  ASSERT_EQ(std::ssize(typed), ::write(master, typed.data(), typed.size()));

  using Ids = std::vector<std::string>;
  const std::pair<std::string, Ids> cases[] = {
      {"<" + home.write("script", script), {"1", "2"}},
      {"<" + std::string(terminal.data()), {"1", "2"}},
      {"<&-", {}},
  };
  for (const auto& [redirection, answered] : cases) {
    SCOPED_TRACE(redirection);
    ServerProcess server({.program = "/bin/sh",
                          .arguments = {"-c", "exec \"$0\" " + redirection, QUILLMERE_SERVER}});
    Ids ids;
    while (const auto message = server.receive()) {
      ids.emplace_back(message->object().find("id")->text());
    }
    EXPECT_EQ(answered, ids);
    EXPECT_EQ(0, server.waitForExit());
  }
}

}  // namespace
}  // namespace quillmere
