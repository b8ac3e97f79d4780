// The real program between a scripted client and a scripted desktop app.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <map>
#include <string>
#include <vector>

#include "control/control_frame.hpp"
#include "simulator/server_process.hpp"
#include "support/desktop_app.hpp"
#include "support/json.hpp"
#include "support/temporary_home.hpp"

namespace quillmere {
namespace {

/// Answers the next call that reaches the app, once it is there whole.
void answerNext(const DesktopApp& app) {
  const AppConnection connection = app.accept();
  EXPECT_TRUE(connection.receive());
  connection.answer({{"ok", true}});
}

/// A running server that has been shaken hands with, in a home of its own.
struct Program : testing::Test {
  TemporaryHome home;
  ServerProcess server{{.program = QUILLMERE_SERVER, .home = home.path()}};

  Program() {
    server.send("{\"jsonrpc\":\"2.0\",\"id\":\"hello\",\"method\":\"initialize\"}\n");
    EXPECT_TRUE(server.receive());
  }

  void request(const JsonValue& id, std::string_view method, JsonObject params = {}) {
    JsonObject message{{"jsonrpc", "2.0"}, {"id", id}, {"method", method}};
    message.set("params", std::move(params));
    server.send(message);
  }
  /// A call of a tool that needs no arguments; `taskId` tells the calls apart on the app's side.
  void call(const JsonValue& id, std::string_view taskId = "task") {
    request(id, "tools/call",
            {{"name", "quillmere.devices.list"}, {"arguments", JsonObject{{"taskId", taskId}}}});
  }
  void cancel(const JsonValue& id) {
    server.send(JsonObject{{"jsonrpc", "2.0"},
                           {"method", "notifications/cancelled"},
                           {"params", JsonObject{{"requestId", id}, {"reason", "enough"}}}});
  }

  /// The next message, as text.
  std::string next() {
    const auto message = server.receive();
    return message ? compactJson(*message) : "(nothing)";
  }
  /// The next message's id, and its result's text or its error's code and text.
  std::string nextShort() {
    const auto message = server.receive();
    if (!message) return "(nothing)";
    const std::string id = compactJson(*message->find("id")) + ": ";
    if (const JsonObject* error = message->findObject("error")) {
      return id + error->findNumber("code")->text() + " " + *error->findString("message");
    }
    const JsonArray* content = message->findObject("result")->findArray("content");
    return id + (content ? *content->front().asObject()->findString("text") : "done");
  }
  /// Whatever comes until the server, shut down, has ended.
  std::vector<std::string> rest() {
    request("bye", "shutdown");
    std::vector<std::string> messages;
    while (const auto message = server.receive()) messages.push_back(compactJson(*message));
    EXPECT_EQ(0, server.waitForExit());
    return messages;
  }
};

const std::string bye = R"({"jsonrpc":"2.0","id":"bye","result":{}})";
const std::string pong = R"({"jsonrpc":"2.0","id":"ping","result":{}})";
const std::string succeeded =
    "Quillmere tool call succeeded.\nFull result is available in structuredContent.";

TEST_F(Program, CarriesACallToTheAppAndItsAnswerBack) {
  const DesktopApp app(home.releaseSocket());
  request(1, "tools/call", json(R"({"name":"quillmere.input.key","arguments":
               {"key":" PageDown\n","sessionId":"s","deviceSerial":null,"taskId":"a/é\u0001"}})"));
  const AppConnection connection = app.accept();
  auto received = connection.receive();
  ASSERT_TRUE(received);
  EXPECT_EQ(36U, received->findString("id")->size());
  received->set("id", "masked");
  EXPECT_EQ(
      R"({"id":"masked","command":"key","key":"page_down","sessionId":"s","taskId":"a/é\u0001"})",
      compactJson(*received));
  // Numbers come back digit for digit, also those that no machine number holds.
  const std::string digits(1000, '7');
  connection.answer(json(R"({"ok":true,"n":[1.0,1e400,-0.0,)" + digits + "]}"));
  EXPECT_EQ(R"({"jsonrpc":"2.0","id":1,"result":{"content":[{"type":"text","text":)"
            R"("Quillmere tool call succeeded.\nFull result is available in structuredContent."}],)"
            R"("structuredContent":{"ok":true,"n":[1.0,1e400,-0.0,)" +
                digits + R"(]},"isError":false}})",
            next());
  EXPECT_EQ(0U, connection.waitUntilClosed());
}

TEST_F(Program, ServesCallsSideBySideAndTheMainThreadMeanwhile) {
  const DesktopApp app(home.releaseSocket());
  call(1, "first");
  const AppConnection first = app.accept();
  EXPECT_EQ("first", *first.receive()->findString("taskId"));
  call(2, "second");
  const AppConnection second = app.accept();
  EXPECT_EQ("second", *second.receive()->findString("taskId"));
  request("ping", "ping");
  EXPECT_EQ(pong, next());
  second.answer({{"ok", true}});
  EXPECT_EQ("2: " + succeeded, nextShort());
  first.answer({{"ok", false}, {"error", JsonObject{{"message", "no"}}}});
  EXPECT_EQ("1: Quillmere tool call failed: no\nFull result is available in structuredContent.",
            nextShort());
}

TEST_F(Program, CancellingBreaksTheConnectionAndAnswersNothing) {
  const DesktopApp app(home.releaseSocket());
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
    cancel(JsonNumber::fromText("10e-1"));
    EXPECT_EQ(0U, connection.waitUntilClosed());
  }
  cancel(1);
  call(1);
  answerNext(app);
  EXPECT_EQ("1: " + succeeded, nextShort());
  EXPECT_EQ(std::vector{bye}, rest());
}

TEST_F(Program, OfTwoRequestsWithOneIdOnlyTheLaterCanBeCancelled) {
  const DesktopApp app(home.releaseSocket());
  call(7, "earlier");
  const AppConnection earlier = app.accept();
  call(7, "later");
  const AppConnection later = app.accept();
  cancel(7);
  later.waitUntilClosed();
  call(7, "latest");
  const AppConnection latest = app.accept();
  // When the earlier one ends, the record of the latest stays and can be cancelled.
  ASSERT_TRUE(earlier.receive());
  earlier.answer({{"ok", true}});
  EXPECT_EQ("7: " + succeeded, nextShort());
  cancel(7);
  latest.waitUntilClosed();
  EXPECT_EQ(std::vector{bye}, rest());
}

TEST_F(Program, EndsAtOnceWhateverWorkersDo) {
  const DesktopApp app(home.releaseSocket());
  call(1);
  const AppConnection connection = app.accept();
  ASSERT_TRUE(connection.receive());
  server.closeInput();
  EXPECT_EQ(std::nullopt, server.receive());
  EXPECT_EQ(0, server.waitForExit());
  EXPECT_EQ(0U, connection.waitUntilClosed());
}

TEST_F(Program, EndsWhenTheClientNoLongerTakesAnswers) {
  const DesktopApp app(home.releaseSocket());
  call(1);
  const AppConnection blocked = app.accept();
  call(2);
  const AppConnection answered = app.accept();
  ASSERT_TRUE(answered.receive());
  server.closeOutput();
  answered.answer({{"ok", true}});
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
  request("ping", "ping");
  std::map<std::string, int> seen;
  for (int i = 0; i <= calls; ++i) {
    const auto message = server.receive();
    ASSERT_TRUE(message);
    ++seen[compactJson(*message->find("id"))];
    const JsonObject* payload = message->findObject("result")->findObject("structuredContent");
    if (payload != nullptr) {
      EXPECT_EQ(text, *payload->findString("text"));
    }
  }
  for (int id = 0; id < calls; ++id) EXPECT_EQ(1, seen[std::to_string(id)]);
  EXPECT_EQ(std::vector{bye}, rest());
}

TEST_F(Program, HoldsManyCallsAtOnce) {
  const DesktopApp app(home.releaseSocket());
  constexpr int calls = 300;
  std::vector<AppConnection> held;
  for (int id = 0; id < calls; ++id) {
    call(id);
    held.push_back(app.accept());
  }
  for (const AppConnection& connection : held) {
    ASSERT_TRUE(connection.receive());
    connection.answer({{"ok", true}});
  }
  std::map<std::string, int> seen;
  for (int id = 0; id < calls; ++id) ++seen[nextShort()];
  EXPECT_EQ(static_cast<std::size_t>(calls), seen.size());
}

TEST_F(Program, ReportsWhatTheAppAnswersWrongly) {
  struct Case {
    std::string_view name, bytes, outcome;
  };
  using namespace std::string_view_literals;
  const std::string deep = std::string(100'000, '[') + std::string(100'000, ']');
  const std::string deepFrame = controlFrame("{\"a\":" + deep + "}");
  const Case cases[] = {
      {"nothing", "", "-32000 Quillmere closed the MCP control connection."},
      {"half a prefix", "\0\0"sv, "-32000 Quillmere closed the MCP control connection."},
      {"half a body", "\0\0\0\x08{\"ok\""sv, "-32000 Quillmere closed the MCP control connection."},
      {"length 0", "\0\0\0\0"sv,
       "-32000 Quillmere returned an invalid MCP control response frame."},
      {"a byte over 32 MiB", "\2\0\0\1"sv,
       "-32000 Quillmere returned an invalid MCP control response frame."},
      {"an array", "\0\0\0\2[]"sv, "-32000 Quillmere returned an invalid MCP control payload."},
      {"a number",
       "\0\0\0\1"
       "5"sv,
       "-32603 Internal error: The text is not valid JSON: neither an object nor an array at top "
       "level."},
      {"no JSON", "\0\0\0\1x"sv,
       "-32603 Internal error: The text is not valid JSON: syntax error."},
      {"no UTF-8", "\0\0\0\x09{\"a\":\"\xFF\"}"sv,
       "-32603 Internal error: The text is not valid JSON: syntax error."},
      {"nested too deep", deepFrame,
       "-32603 Internal error: The text is not valid JSON: too deep."},
  };
  const DesktopApp app(home.releaseSocket());
  for (const Case& each : cases) {
    SCOPED_TRACE(each.name);
    call(1);
    {
      const AppConnection connection = app.accept();
      ASSERT_TRUE(connection.receive());
      connection.send(each.bytes);
    }
    EXPECT_EQ("1: " + std::string(each.outcome), nextShort());
  }
}

TEST_F(Program, CarriesTheLargestAnswer) {
  const DesktopApp app(home.releaseSocket());
  std::string body = R"({"ok":true,"image":")";
  body += std::string(maxControlResponseBytes - body.size() - 2, 'A') + "\"}";
  for (int round = 0; round < 2; ++round) {
    call(1);
    const AppConnection connection = app.accept();
    ASSERT_TRUE(connection.receive());
    connection.send(controlFrame(body));
    // A line of such length is more than this client's own reader takes: count its bytes.
    std::string line;
    InputStream output(server.outputDescriptor());
    while (!line.ends_with('\n')) ASSERT_TRUE(output.readThrough('\n', body.size(), line));
    EXPECT_GT(line.size(), body.size());
    EXPECT_NE(std::string::npos, line.find(body));
  }
  call(2);
  answerNext(app);
  EXPECT_EQ("2: " + succeeded, nextShort());
}

TEST_F(Program, NestsAsDeepAsItReads) {
  const DesktopApp app(home.releaseSocket());
  for (const auto& [depth, outcome] :
       {std::pair(511, std::string("\"isError\":false")),
        std::pair(512, std::string("Internal error: The text is not valid JSON: too deep."))}) {
    call(1);
    const AppConnection connection = app.accept();
    ASSERT_TRUE(connection.receive());
    const auto levels = static_cast<std::size_t>(depth);
    connection.send(controlFrame("{\"ok\":true,\"a\":" + std::string(levels, '[') +
                                 std::string(levels, ']') + "}"));
    // Wrapped into a result the largest is deeper than this client's own parser goes.
    std::string line;
    InputStream output(server.outputDescriptor());
    while (!line.ends_with('\n')) ASSERT_TRUE(output.readThrough('\n', 4096, line));
    EXPECT_EQ(depth == 511, line.find(std::string(511, '[')) != std::string::npos) << line;
    EXPECT_NE(std::string::npos, line.find(outcome)) << line;
  }
}

TEST_F(Program, RunsOutOfDescriptorsForOneCallOnly) {
  const DesktopApp app(home.releaseSocket());
  rlimit before{};
  ASSERT_EQ(0, ::prlimit(server.processID(), RLIMIT_NOFILE, nullptr, &before));
  const rlimit none{.rlim_cur = 3, .rlim_max = before.rlim_max};
  ASSERT_EQ(0, ::prlimit(server.processID(), RLIMIT_NOFILE, &none, nullptr));
  call(1);
  EXPECT_EQ("1: -32000 Could not create Quillmere MCP control socket.", nextShort());
  ASSERT_EQ(0, ::prlimit(server.processID(), RLIMIT_NOFILE, &before, nullptr));
  call(2);
  answerNext(app);
  EXPECT_EQ("2: " + succeeded, nextShort());
}

TEST_F(Program, WithoutAnAppOnlyWhatNeedsItFails) {
  call(1);
  EXPECT_EQ("1: -32000 Quillmere MCP control socket was not found. Start Quillmere first.",
            nextShort());
  request(2, "resources/read", {{"uri", "quillmere://devices"}});
  EXPECT_EQ("2: -32000 Quillmere MCP control socket was not found. Start Quillmere first.",
            nextShort());
  request(3, "tools/call", {{"name", "quillmere.help"}});
  EXPECT_EQ("3: " + succeeded, nextShort());
}

TEST_F(Program, RefusesBadCallsBeforeItLooksForTheApp) {
  const std::pair<std::string_view, std::string_view> cases[] = {
      {R"({})", "-32602 tools/call requires params.name."},
      {R"({"name":5})", "-32602 tools/call requires params.name."},
      {R"({"name":""})", "-32602 Unknown Quillmere tool: "},
      {R"({"name":"x","arguments":"y"})", "-32602 tools/call params.arguments must be an object."},
      {R"({"name":"x","arguments":{"y":1}})", "-32602 Unknown Quillmere tool: x"},
      {R"({"name":"quillmere.help","arguments":{"taskId":"t"}})",
       "-32602 Unsupported argument for quillmere.help: taskId"},
      {R"({"name":"quillmere.input.tap","arguments":{"x":1,"y":2}})",
       "-32602 quillmere.input.tap requires argument: deviceSerial or sessionId"},
  };
  for (const auto& [params, outcome] : cases) {
    request(1, "tools/call", json(params));
    EXPECT_EQ("1: " + std::string(outcome), nextShort());
  }
  // Also what the worker finds wrong with the envelope is answered with the id.
  server.send("{\"id\":2,\"method\":\"tools/call\"}\n");
  EXPECT_EQ("2: -32600 JSON-RPC version must be 2.0.", nextShort());
  request(3, "resources/read", {{"uri", "quillmere://devices/"}});
  EXPECT_EQ("3: -32602 Unknown Quillmere resource: quillmere://devices/", nextShort());
  request(4, "resources/read", {{"uri", 5}});
  EXPECT_EQ("4: -32602 Unknown Quillmere resource: ", nextShort());
}

TEST_F(Program, ReadsAResourceAsTheAppGivesIt) {
  const DesktopApp app(home.releaseSocket());
  for (const auto& [uri, request_] :
       {std::pair("quillmere://devices", R"({"command":"listDevices","includeOffline":true})"),
        std::pair("quillmere://sessions", R"({"command":"listSessions"})")}) {
    request(1, "resources/read", {{"uri", uri}});
    const AppConnection connection = app.accept();
    auto received = connection.receive();
    ASSERT_TRUE(received);
    JsonObject withoutId;
    for (const auto& [key, value] : *received) {
      if (key != "id") withoutId.set(key, value);
    }
    EXPECT_EQ(request_, compactJson(withoutId));
    connection.answer(json(R"({"ok":false,"b":{"z":"a/é","y":[1,{}]},"a":[]})"));
    const auto message = server.receive();
    ASSERT_TRUE(message);
    const JsonArray* contents = message->findObject("result")->findArray("contents");
    ASSERT_EQ(1U, contents->size());
    const JsonObject& content = *contents->front().asObject();
    EXPECT_EQ(uri, *content.findString("uri"));
    EXPECT_EQ("application/json", *content.findString("mimeType"));
    EXPECT_EQ(
        "{\n  \"a\": [],\n  \"b\": {\n    \"y\": [\n      1,\n      {}\n    ],\n    \"z\": "
        "\"a/é\"\n  },\n  \"ok\": false\n}",
        *content.findString("text"));
  }
  // A read can be cancelled like a call.
  request(2, "resources/read", {{"uri", "quillmere://devices"}});
  const AppConnection connection = app.accept();
  cancel(2);
  connection.waitUntilClosed();
  EXPECT_EQ(std::vector{bye}, rest());
}

TEST_F(Program, AnswersHeaderFramingInKindFromThenOn) {
  const std::string ping = R"({"jsonrpc":"2.0","id":1,"method":"ping"})";
  const std::string reply = R"({"jsonrpc":"2.0","id":1,"result":{}})";
  const auto framed = [](const std::string& body) {
    return "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
  };
  InputStream output(server.outputDescriptor());
  for (const std::string& wire : {framed(ping), ping + "\n"}) {
    server.send(wire);
    std::string text;
    while (text.size() < framed(reply).size()) {
      ASSERT_TRUE(output.read(framed(reply).size() - text.size(), text));
    }
    EXPECT_EQ(framed(reply), text);
  }
}

struct Options : testing::Test {
  TemporaryHome home;

  struct Outcome {
    std::string output;
    std::optional<int> status;
  };
  Outcome run(std::vector<std::string> arguments) const {
    ServerProcess process(
        {.program = QUILLMERE_SERVER, .arguments = std::move(arguments), .home = home.path()});
    process.closeInput();
    Outcome outcome;
    InputStream output(process.outputDescriptor());
    while (output.read(4096, outcome.output)) {
    }
    outcome.status = process.waitForExit();
    return outcome;
  }
};

TEST_F(Options, AreFoundAnywhereAndHelpGoesFirst) {
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"--help"}, {"-h"}, {"--unknown", "--doctor", "--help"}}) {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ(351U, outcome.output.size());
    EXPECT_TRUE(outcome.output.starts_with("Quillmere stdio MCP sidecar for supervised Android"));
    EXPECT_TRUE(outcome.output.ends_with("  --help    Print this help and exit.\n"));
  }
  const Outcome served = run({"--unknown", "help"});
  EXPECT_EQ("", served.output);
  EXPECT_EQ(0, served.status);
}

}  // namespace
}  // namespace quillmere
