// The real program between a scripted client and a scripted desktop app: what a conversation in a
// file can't express because it is large, many, or blocking.
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <set>
#include <string>
#include <vector>

#include "control/control_frame.hpp"
#include "harness/desktop_app.hpp"
#include "support/running_server.hpp"

namespace quillmere {
namespace {

using Program = RunningServer;

TEST_F(Program, CancellingBreaksACallThatBlocksInSend) {
  const DesktopApp app(home.releaseSocket());
  // More than a socket holds while the app does not read.
  const std::string text = times(16'384, "👨\u200D👩\u200D👧\u200D👦");
  request(1, "tools/call",
          {{"name", "quillmere.input.text"},
           {"arguments", JsonText{{"text", text}, {"sessionId", "s"}}}});
  const AppConnection unread = app.accept();
  char first = 0;
  EXPECT_EQ(1, ::recv(unread.number(), &first, 1, 0));
  cancel(1);
  request("ping", "ping");
  EXPECT_EQ(pong, next());
  EXPECT_LT(unread.waitUntilClosed(), text.size());
  server.closeInput();
  EXPECT_EQ("(nothing)", next());
  EXPECT_EQ(0, server.waitForExit());
}

TEST_F(Program, NothingIsLostWhileTheClientDoesNotRead) {
  const std::string text(300'000, 'x');
  const DesktopApp app(home.releaseSocket(), [&](const AppConnection& connection) {
    if (connection.receive()) connection.answer({{"ok", true}, {"text", text}});
    connection.waitUntilClosed();
  });
  constexpr int calls = 100;
  for (int id = 0; id < calls; ++id) call(id);
  std::set<std::string> heads;
  for (int i = 0; i < calls; ++i) {
    const std::string answer = next();
    EXPECT_NE(std::string::npos, answer.find("\"" + text + "\""));
    heads.insert(answer.substr(0, answer.find("\"result\"")));
  }
  EXPECT_EQ(calls, std::ssize(heads));
}

TEST_F(Program, EndsWhenTheClientIsKilledInTheMiddleOfTheLargestResult) {
  const DesktopApp app(home.releaseSocket());
  call(1);
  const AppConnection connection = app.accept();
  ASSERT_TRUE(connection.receive());
  const std::string image(maxControlResponseBytes - 22, 'A');
  ASSERT_TRUE(connection.send(controlFrame(R"({"ok":true,"image":")" + image + "\"}")));
  EXPECT_EQ(1U, server.receiveBytes(1).size());
  server.closeInput();
  server.closeOutput();
  EXPECT_EQ(0, server.waitForExit());
}

TEST_F(Program, APromptAcceptsATaskOf16384Characters) {
  for (const auto& [size, outcome] :
       {std::pair(std::size_t{16'384}, "result\":"), {16'385, "task is too long."}}) {
    request(1, "prompts/get",
            {{"name", "phone_task_assistant"},
             {"arguments", JsonText{{"task", times(size, "👍🏽")}}}});
    EXPECT_NE(std::string::npos, next().find(outcome)) << size;
  }
}

TEST(Options, AreFoundAnywhereAndHelpTakesPrecedence) {
  const std::pair<std::vector<std::string>, std::size_t> cases[] = {
      {{"--help"}, 351},
      {{"-h"}, 351},
      {{"--unknown", "--doctor", "--help"}, 351},
      {{"--unknown", "help"}, 0},
  };
  for (const auto& [arguments, size] : cases) {
    const TemporaryHome home;
    const auto [text, status] = runToEnd({.program = QUILLMERE_SERVER, .arguments = arguments});
    EXPECT_EQ(0, status);
    EXPECT_EQ(size, text.size());
    EXPECT_EQ(size > 0, text.starts_with("Quillmere stdio MCP sidecar for supervised Android"));
    EXPECT_EQ(size > 0, text.ends_with("  --help    Print this help and exit.\n"));
  }
}

}  // namespace
}  // namespace quillmere
