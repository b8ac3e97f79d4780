// The real program between a scripted client and a scripted desktop app, where a conversation in a
// file can't say it: what blocks, what ends, what is no line.
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <set>
#include <string>
#include <vector>

#include "harness/desktop_app.hpp"
#include "support/running_server.hpp"

namespace quillmere {
namespace {

/// Answers a call once it is there whole.
void answer(const AppConnection& connection) {
  EXPECT_TRUE(connection.receive());
  connection.answer({{"ok", true}});
}

struct Program : RunningServer {
  void expectNothingMore() {
    server.closeInput();
    EXPECT_EQ(std::nullopt, server.receiveText());
    EXPECT_EQ(0, server.waitForExit());
  }
};

const std::string pong = R"({"jsonrpc":"2.0","id":"ping","result":{}})";
const std::string succeeded = "Quillmere tool call succeeded.";

TEST_F(Program, CancellingBreaksACallThatBlocksAsItSends) {
  const DesktopApp app(home.releaseSocket());
  // More than a socket takes while the app does not read.
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
  expectNothingMore();
}

TEST_F(Program, AnswersAndEndsWhateverOtherWorkersWaitFor) {
  const DesktopApp app(home.releaseSocket());
  call(1);
  const AppConnection connection = app.accept();
  ASSERT_TRUE(connection.receive());
  call(2);
  answer(app.accept());
  EXPECT_EQ("2: " + succeeded, nextShort());
  expectNothingMore();
  EXPECT_EQ(0U, connection.waitUntilClosed());
}

TEST_F(Program, EndsWhenTheClientNoLongerTakesAnswers) {
  const DesktopApp app(home.releaseSocket());
  call(1);
  const AppConnection blocked = app.accept();
  call(2);
  const AppConnection answered = app.accept();
  server.closeOutput();
  answer(answered);
  EXPECT_EQ(0, server.waitForExit());
  blocked.waitUntilClosed();
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
  expectNothingMore();
}

TEST_F(Program, AnswersHeaderFramingInKindFromThenOn) {
  const auto framed = [](const std::string& body) {
    return "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
  };
  const std::string reply = framed(R"({"jsonrpc":"2.0","id":1,"result":{}})");
  const std::string ping = R"({"jsonrpc":"2.0","id":1,"method":"ping"})";
  // The first block is answered in kind although it is none to read.
  const std::pair<std::string, std::string> cases[] = {
      {"Content-Length: x\r\n\r\n",
       framed(R"({"jsonrpc":"2.0","id":null,"error":{"code":-32700,"message":)"
              R"("Parse error: missing Content-Length."}})")},
      {framed(ping), reply},
      {ping + "\n", reply},
  };
  for (const auto& [wire, answer] : cases) {
    server.send(wire);
    EXPECT_EQ(answer, server.receiveBytes(answer.size()));
  }
}

TEST(Options, AreFoundAnywhereAndHelpGoesFirst) {
  const std::pair<std::vector<std::string>, std::size_t> cases[] = {
      {{"--help"}, 351},
      {{"-h"}, 351},
      {{"--unknown", "--doctor", "--help"}, 351},
      {{"--unknown", "help"}, 0},
  };
  for (const auto& [arguments, size] : cases) {
    const TemporaryHome home;
    const auto [text, status] =
        runToEnd({.program = QUILLMERE_SERVER, .arguments = arguments, .home = home.path()});
    EXPECT_EQ(0, status);
    EXPECT_EQ(size, text.size());
    EXPECT_EQ(size > 0, text.starts_with("Quillmere stdio MCP sidecar for supervised Android"));
    EXPECT_EQ(size > 0, text.ends_with("  --help    Print this help and exit.\n"));
  }
}

}  // namespace
}  // namespace quillmere
