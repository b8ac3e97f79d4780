// One call, from the search for the desktop app's socket to the end.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <filesystem>
#include <set>

#include "control/app_socket.hpp"
#include "control/control_call.hpp"
#include "control/control_frame.hpp"
#include "harness/desktop_app.hpp"
#include "harness/temporary_home.hpp"
#include "platform/process.hpp"
#include "support/json.hpp"

namespace quillmere {
namespace {

namespace fs = std::filesystem;

std::size_t openDescriptors() {
  return static_cast<std::size_t>(
      std::distance(fs::directory_iterator("/dev/fd"), fs::directory_iterator()));
}

/// A separate home for each test, and a check that no descriptor stays open.
class ControlTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { prepareProcess(); }
  void TearDown() override { EXPECT_EQ(openDescriptors(), openBefore); }

  const TemporaryHome home;

 private:
  const std::size_t openBefore = openDescriptors();
};

using Discovery = ControlTest;
using Connecting = ControlTest;
using ControlCall = ControlTest;

TEST_F(Discovery, FindsTheInnermostBundle) {
  home.write("Outer.app/Contents/Info.plist", infoPlist("outer"));
  home.write("Outer.app/Contents/Helper.app/Contents/Info.plist", infoPlist("inner"));
  home.write("Outer.app/Contents/Bare.app/Contents/PkgInfo", "no property list here");
  home.write("Small.app/contents/Info.plist", infoPlist("small"));
  constexpr std::pair<std::string_view, std::optional<std::string_view>> cases[] = {
      {"Outer.app/Contents/MacOS/server", "outer"},
      {"Outer.app/Contents/server", "outer"},
      {"Outer.app/server", std::nullopt},
      {"Outer.app/Contents/MyContents/server", "outer"},
      {"Outer.app/Contents/Helper.app/Contents/MacOS/deep/server", "inner"},
      {"Outer.app/Contents/Helper.app/server", "outer"},
      {"Outer.app/Contents/Bare.app/Contents/MacOS/server", std::nullopt},
      {"Outer.app/Contents", std::nullopt},
      {"Small.app/contents/server", std::nullopt},
  };
  for (const auto& [executable, identifier] : cases) {
    EXPECT_EQ(bundledAppIdentifier(home.path() + "/" + std::string(executable)), identifier)
        << executable;
  }
}

std::string connectFailure() {
  return failureOf([] { static_cast<void>(connectAppControlSocket()); });
}

constexpr std::string_view notFound =
    "-32000 Quillmere MCP control socket was not found. Start Quillmere first.";
const std::string notReached = "-32000 Could not reach Quillmere MCP control socket: ";

TEST_F(Connecting, NamesEachFailingCandidateInOrder) {
  fs::create_directories(fs::path(home.releaseSocket()).parent_path());
  fs::create_symlink(home.path() + "/live", home.releaseSocket());
  EXPECT_EQ(connectFailure(), notFound) << "a dangling link does not count";

  const DesktopApp elsewhere(home.path() + "/live");
  std::string failures = home.releaseSocket() + ": not a socket";
  EXPECT_EQ(connectFailure(), notReached + failures) << "a link to a live socket is not a socket";
  home.write(home.ungroupedSocket(), "a file");
  failures += "; " + home.ungroupedSocket() + ": not a socket";
  leaveStaleSocket(home.debugSocket());
  failures = home.debugSocket() + ": Connection refused; " + failures;
  EXPECT_EQ(connectFailure(), notReached + failures);

  fs::remove(home.releaseSocket());
  const DesktopApp app(home.releaseSocket());
  EXPECT_EQ(connectFailure(), "") << "a live socket after a stale one";
}

TEST_F(Connecting, NamesAPathThatIsNotUtf8WithReplacements) {
  ::setenv("HOME", (home.path() + "/\xFF").c_str(), 1);
  const std::string socket = home.releaseSocket().substr(home.path().size());
  home.write(home.path() + "/\xFF" + socket, "a file");
  EXPECT_EQ(connectFailure(), notReached + home.path() + "/\uFFFD" + socket + ": not a socket");
}

TEST_F(Connecting, GivesUpASilentAppAfter75Seconds) {
  const DesktopApp app(home.releaseSocket());
  const int number = Descriptor(::dup(STDIN_FILENO)).number();
  const UnixSocket socket = connectAppControlSocket();
  for (const int direction : {SO_RCVTIMEO, SO_SNDTIMEO}) {
    timeval limit{};
    socklen_t size = sizeof limit;
    // The socket got the lowest free number.
    ASSERT_EQ(0, ::getsockopt(number, SOL_SOCKET, direction, &limit, &size));
    EXPECT_EQ(75, limit.tv_sec);
  }
}

TEST_F(Connecting, APathMayHave103Bytes) {
  const auto path = [&](std::size_t length) {
    return home.path() + "/" + std::string(length - home.path().size() - 1, 's');
  };
  const auto failure = [&](std::size_t length) {
    return connectUnixSocket(*UnixSocket::create(), path(length));
  };
  const DesktopApp app(path(103));
  EXPECT_EQ(failure(103), "");
  EXPECT_EQ(failure(102), "No such file or directory");
  EXPECT_EQ(failure(104), "The MCP control socket path is too long.");
}

TEST_F(Connecting, AFullBacklogIsAnOrdinaryFailure) {
  const DesktopApp app(home.releaseSocket());
  std::vector<UnixSocket> waiting;
  std::string failure;
  while (failure.empty()) {
    waiting.push_back(*UnixSocket::create());
    failure = connectUnixSocket(waiting.back(), home.releaseSocket());
  }
  EXPECT_EQ(failure, "Resource temporarily unavailable");
  EXPECT_EQ(connectFailure(), notReached + home.releaseSocket() + ": " + failure);
}

TEST(ControlRequest, HoldsControlFieldsBesideItsOwnKeys) {
  struct RequestCase {
    std::string_view name, command, arguments, request;
  };
  constexpr RequestCase cases[] = {
      {"arguments are flat and unchanged", "tap",
       R"({"taskName":" a\u002Fb\n", "x":1.0,"includeImage" : false,"text":[1, {}]})",
       R"(,"command":"tap","taskName":" a\u002Fb\n","x":1.0,"includeImage":false,"text":[1,{}]})"},
      {"leaves out null and what is not a control field", "wait",
       R"({"id":"mine","command":"tap","topic":"ui","X":1,"sessionId":null,"durationMs":5})",
       R"(,"command":"wait","durationMs":5})"},
      {"the last of equal keys counts", "wait",
       R"({"durationMs":5,"durationM\u0073":6,"sessionId":"s","sessionId":null})",
       R"(,"command":"wait","durationMs":6})"},
      {"adbCommand takes its value from command", "adbCommand",
       R"({"command":"ls","adbCommand":"rm","userId":7})",
       R"(,"command":"adbCommand","userId":7,"adbCommand":"ls"})"},
      {"adbCommand alone is a control field", "adbCommand", R"({"adbCommand":"ls"})",
       R"(,"command":"adbCommand","adbCommand":"ls"})"},
  };
  std::set<std::string> ids;
  for (const auto& [name, command, arguments, expected] : cases) {
    const JsonObject request = json(controlRequest(command, json(arguments)).str());
    const std::string id(request.find("id")->text());
    EXPECT_EQ(id.size(), 2 + 36) << name;
    EXPECT_TRUE(ids.insert(id).second) << name;
    EXPECT_EQ(request.text(), "{\"id\":" + id + std::string(expected)) << name;
  }
}

constexpr std::string_view closed = "-32000 Quillmere closed the MCP control connection.";
constexpr std::string_view writeFailed = "-32000 Could not write to Quillmere MCP control socket.";

/// The outcome of a call: the app response as JSON text, or the failure.
std::string outcomeOf(const JsonObject& arguments, InFlightRequest& inFlight) {
  std::string answer;
  const std::string failure =
      failureOf([&] { answer = callAppControl("tap", arguments, inFlight)->root().text(); });
  return answer + failure;
}

std::string outcomeOf(const JsonObject& arguments) {
  const auto message = parseJson("[1]");
  InFlightRequest request(message, message->root());
  return outcomeOf(arguments, request);
}

TEST_F(ControlCall, ChecksArgumentsBeforeTheSocket) {
  const auto with = [](std::string_view key, const std::string& text) {
    return json(JsonText{{key, text}}.str());
  };
  EXPECT_EQ(outcomeOf(with("command", times(4097, "c"))), "-32602 command is too long.");

  // If the writer escaped these characters, the request would wrongly exceed the limit.
  const std::string text = "/é为😀";
  const std::size_t own = controlRequest("tap", with("x", text)).size();
  const auto ofBytes = [&](std::size_t size) { return with("x", text + times(size - own, "x")); };
  EXPECT_EQ(outcomeOf(ofBytes(1'048'577)), "-32602 Quillmere MCP tool request is too large.");
  EXPECT_EQ(outcomeOf(ofBytes(1'048'576)), notFound);
  const auto message = parseJson("[1]");
  InFlightRequest cancelled(message, *message->root().asArray()->begin());
  cancelled.cancel("reason");
  EXPECT_EQ(outcomeOf({}, cancelled), "-32800 MCP request was cancelled.");

  const DesktopApp app(home.releaseSocket(), [&](const AppConnection& connection) {
    const auto request = connection.receive();
    EXPECT_EQ(request ? request->root().text().size() : 0, 1'048'576);
    connection.answer(JsonText::object());
  });
  EXPECT_EQ(outcomeOf(ofBytes(1'048'576)), "{}");
}

TEST_F(ControlCall, EndsAsTheAppResponseSays) {
  using std::string_literals::operator""s;
  constexpr std::string_view badFrame =
      "-32000 Quillmere returned an invalid MCP control response frame.";
  struct AnswerCase {
    std::string name;
    std::vector<std::string> pieces;
    std::string_view outcome;
  };
  constexpr std::string_view answer = R"({"id":"of another call","n":[1.0,1e400]})";
  const std::string frame = controlFrame(answer);
  std::vector<std::string> bytes;
  for (const char byte : frame) bytes.emplace_back(1, byte);
  std::vector<AnswerCase> cases = {
      {"a response", {frame}, answer},
      {"byte by byte", bytes, answer},
      {"no length", {"\0\0\0\0"s}, badFrame},
      {"a length past the limit", {"\x02\0\0\1"s}, badFrame},
      {"the largest number", {"\xFF\xFF\xFF\xFF"}, badFrame},
      {"the largest allowed length, and no body", {"\x02\0\0\0"s}, closed},
  };
  for (std::size_t i = 0; i < frame.size(); ++i) {
    cases.push_back({"cut at byte " + std::to_string(i), {frame.substr(0, i)}, closed});
  }
  for (const AnswerCase& each : cases) {
    const DesktopApp app(home.releaseSocket(), [&](const AppConnection& connection) {
      EXPECT_EQ(*connection.receive()->object().findString("command"), "tap");
      for (const std::string& piece : each.pieces) connection.send(piece);
      // If the app does not close, the server must: it waits for no further byte.
      if (each.outcome != closed) {
        EXPECT_EQ(connection.waitUntilClosed(), 0) << "nothing follows the request";
      }
    });
    EXPECT_EQ(outcomeOf({}), each.outcome) << each.name;
  }
}

TEST_F(ControlCall, AnAppThatDoesNotReadGivesAFailedWrite) {
  const DesktopApp app(home.releaseSocket(), [](const AppConnection&) {});
  // More than any socket buffer holds.
  EXPECT_EQ(outcomeOf(json("{\"x\":\"" + times(1'000'000, "x") + "\"}")), writeFailed);
}

}  // namespace
}  // namespace quillmere
