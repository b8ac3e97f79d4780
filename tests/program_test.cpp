// The real program between a scripted client and a scripted desktop app.
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "control/control_frame.hpp"
#include "harness/desktop_app.hpp"
#include "support/running_server.hpp"

namespace quillmere {
namespace {

/// Answers a call once it is there whole; without `bytes` with success.
void answer(const AppConnection& connection, std::string_view bytes = {}) {
  EXPECT_TRUE(connection.receive());
  connection.send(bytes.data() != nullptr ? bytes : controlFrame(R"({"ok":true})"));
}

/// The request that comes, without its id, which is another each time.
std::string receivedAfterId(const AppConnection& connection) {
  const auto received = connection.receive();
  if (!received) return "(nothing)";
  const std::string_view id = received->object().find("id")->text();
  const std::string_view text = received->root().text();
  EXPECT_TRUE(text.starts_with("{\"id\":" + std::string(id)));
  return std::string(text.substr(std::min(text.size(), 6 + id.size())));
}

struct Program : RunningServer {
  /// Whatever comes until the server, shut down, has ended.
  std::vector<std::string> rest() {
    request("bye", "shutdown");
    std::vector<std::string> messages;
    while (const auto message = server.receiveText()) messages.emplace_back(*message);
    EXPECT_EQ(0, server.waitForExit());
    return messages;
  }
};

const std::string bye = R"({"jsonrpc":"2.0","id":"bye","result":{}})";
const std::string pong = R"({"jsonrpc":"2.0","id":"ping","result":{}})";
const std::string succeeded = "Quillmere tool call succeeded.";

TEST_F(Program, CarriesACallToTheAppAndItsAnswerBack) {
  const DesktopApp app(home.releaseSocket());
  const std::pair<std::string_view, std::string_view> answers[] = {
      {R"({ "ok" : true, "n":[1.0,1e400], "s":"a/é\u002f" })",
       R"({ "ok" : true, "n":[1.0,1e400], "s":"a/é\u002f" })"},
      {R"({ "ok" : true, "base64":"\/\/8=\u003d" })", R"({"ok":true,"base64":"//8=\u003d"})"},
      {"{ \"ok\" :\n true }", R"({"ok":true})"},
  };
  for (const auto& [answer, passedOn] : answers) {
    request(JsonText::constant(R"("\u0069d")"), "tools/call",
            JsonText::constant(R"({"name":"quillmere.input.key","arguments":{"key":" PageDown\n",)"
                               R"("sessionId":"s","deviceSerial":null,"taskId":"a/é\u0041"}})"));
    const AppConnection connection = app.accept();
    EXPECT_EQ(R"(,"command":"key","key":"page_down","sessionId":"s","taskId":"a/é\u0041"})",
              receivedAfterId(connection));
    connection.send(controlFrame(answer));
    EXPECT_EQ(
        R"({"jsonrpc":"2.0","id":"\u0069d","result":{"content":[{"type":"text","text":)"
        R"("Quillmere tool call succeeded.\nFull result is available in structuredContent."}],)"
        R"("structuredContent":)" +
            std::string(passedOn) + R"(,"isError":false}})",
        next());
    EXPECT_EQ(0U, connection.waitUntilClosed());
  }
}

TEST_F(Program, CancellingBreaksTheConnectionAndAnswersNothing) {
  const DesktopApp app(home.releaseSocket());
  // More than a socket takes while the app does not read: the call blocks as it sends.
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
  // Waiting for the answer's first byte, or in the middle of it; found under another spelling.
  for (const std::string_view begun : {"", "\0\0", "\0\0\0\x10{\"ok\""}) {
    call(1);
    const AppConnection connection = app.accept();
    ASSERT_TRUE(connection.receive());
    if (!begun.empty()) connection.send(begun);
    cancel("1");
    cancel(2);
    request("ping", "ping");
    EXPECT_EQ(pong, next());
    cancel(JsonText::constant("10e-1"));
    EXPECT_EQ(0U, connection.waitUntilClosed());
  }
  cancel(1);
  call(1);
  answer(app.accept());
  EXPECT_EQ("1: " + succeeded, nextShort());
  EXPECT_EQ(std::vector{bye}, rest());
}

TEST_F(Program, OfTwoRequestsWithOneIdOnlyTheLaterCanBeCancelled) {
  const DesktopApp app(home.releaseSocket());
  call(7);
  const AppConnection earlier = app.accept();
  call(7);
  const AppConnection later = app.accept();
  cancel(7);
  later.waitUntilClosed();
  call(7);
  const AppConnection latest = app.accept();
  // When the earlier one ends, the record of the latest stays and can be cancelled.
  answer(earlier);
  EXPECT_EQ("7: " + succeeded, nextShort());
  cancel(7);
  latest.waitUntilClosed();
  EXPECT_EQ(std::vector{bye}, rest());
}

TEST_F(Program, AnswersAndEndsWhateverOtherWorkersWaitFor) {
  const DesktopApp app(home.releaseSocket());
  call(1);
  const AppConnection connection = app.accept();
  ASSERT_TRUE(connection.receive());
  call(2);
  answer(app.accept());
  EXPECT_EQ("2: " + succeeded, nextShort());
  server.closeInput();
  EXPECT_EQ(nullptr, server.receive());
  EXPECT_EQ(0, server.waitForExit());
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
  EXPECT_EQ(std::vector{bye}, rest());
}

TEST_F(Program, ReportsWhatTheAppAnswersWrongly) {
  using std::string_literals::operator""s;
  const std::string notJson = "1: -32603 Internal error: The text is not valid JSON: ";
  const std::pair<std::string, std::string> cases[] = {
      {"", "1: -32000 Quillmere closed the MCP control connection."},
      {"\2\0\0\1"s, "1: -32000 Quillmere returned an invalid MCP control response frame."},
      {controlFrame("[]"), "1: -32000 Quillmere returned an invalid MCP control payload."},
      {controlFrame("5"), notJson + "neither an object nor an array at top level."},
      {controlFrame("x"), notJson + "syntax error."},
      {controlFrame(times(513, "[")), notJson + "too deep."},
  };
  const DesktopApp app(home.releaseSocket());
  for (const auto& [bytes, outcome] : cases) {
    call(1);
    answer(app.accept(), bytes);
    EXPECT_EQ(outcome, nextShort());
  }
}

TEST_F(Program, WithoutAnAppOnlyWhatNeedsItFails) {
  const std::string notFound =
      "-32000 Quillmere MCP control socket was not found. Start Quillmere first.";
  const std::string toolCall = R"("jsonrpc":"2.0","method":"tools/call","params":)";
  const std::string read = R"("jsonrpc":"2.0","method":"resources/read","params":)";
  const std::pair<std::string, std::string> cases[] = {
      {toolCall + R"({"name":"quillmere.devices.list"})", notFound},
      {read + R"({"uri":"quillmere://devices"})", notFound},
      {toolCall + R"({"name":"quillmere.help","arguments":null})", succeeded},
      // A request is checked before the app is looked for.
      {toolCall + R"({"name":5})", "-32602 tools/call requires params.name."},
      {toolCall + R"({"name":"x","arguments":"y"})",
       "-32602 tools/call params.arguments must be an object."},
      {toolCall + R"({"name":"x","arguments":{"y":1}})", "-32602 Unknown Quillmere tool: x"},
      {toolCall + R"({"name":"quillmere.input.tap","arguments":{"x":1,"y":2}})",
       "-32602 quillmere.input.tap requires argument: deviceSerial or sessionId"},
      {read + R"({"uri":"quillmere://devices/"})",
       "-32602 Unknown Quillmere resource: quillmere://devices/"},
      {read + R"({"uri":5})", "-32602 Unknown Quillmere resource: "},
      // Also what the worker finds wrong with the envelope is answered with the id.
      {R"("method":"tools/call")", "-32600 JSON-RPC version must be 2.0."},
  };
  for (const auto& [members, outcome] : cases) {
    server.send("{\"id\":1," + members + "}\n");
    EXPECT_EQ("1: " + outcome, nextShort());
  }
}

TEST_F(Program, ReadsAResourceAsTheAppGivesIt) {
  const DesktopApp app(home.releaseSocket());
  for (const auto& [uri, members] :
       {std::pair("quillmere://devices", R"(,"command":"listDevices","includeOffline":true})"),
        std::pair("quillmere://sessions", R"(,"command":"listSessions"})")}) {
    request(1, "resources/read", {{"uri", uri}});
    const AppConnection connection = app.accept();
    EXPECT_EQ(members, receivedAfterId(connection));
    connection.send(
        controlFrame(R"({"ok":true,"b" : {"z":"a\/é\n","y":[1,{}]},"ok":false,"a":[]})"));
    EXPECT_EQ(
        R"({"jsonrpc":"2.0","id":1,"result":{"contents":[{"uri":")" + std::string(uri) +
            R"(","mimeType":"application/json","text":"{\n  \"a\": [],\n  \"b\": {\n    \"y\": )"
            R"([\n      1,\n      {}\n    ],\n    \"z\": \"a/é\\n\"\n  },\n  \"ok\": false\n}"}]}})",
        next());
  }
  // A read can be cancelled like a call.
  request(2, "resources/read", {{"uri", "quillmere://devices"}});
  const AppConnection connection = app.accept();
  cancel(2);
  connection.waitUntilClosed();
  EXPECT_EQ(std::vector{bye}, rest());
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
