// The simulated desktop app: its rules as pure functions, then the real program before the real
// server.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <deque>
#include <filesystem>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "control/control_frame.hpp"
#include "platform/unix_socket.hpp"
#include "simulator/base64.hpp"
#include "simulator/commands.hpp"
#include "simulator/options.hpp"
#include "simulator/server_process.hpp"
#include "support/json.hpp"
#include "support/temporary_home.hpp"

namespace quillmere {
namespace {

/// A mirrored phone that is asked one thing after the other, and a clock that only waiting moves.
struct Desk {
  World world = makeWorld();
  WorldTime now{0};
  std::string lastAuditId;
  /// Signatures in the order in which they were first seen.
  std::vector<std::string> screens;

  Desk() {
    ask("startSession");
    screens = {view().signature};
  }

  View view() const { return viewOf(world.devices[0].phone, now); }

  /// `line` is a command and, behind a blank, the members of its request. The session is added to
  /// a request that names no device; `on` stands for the id of the node of that name; a signature
  /// may be given by its letter, and is the present one when it is left out.
  JsonObject ask(std::string_view line) {
    const std::size_t end = std::min(line.find(' '), line.size());
    const std::string members(line.substr(end));
    Call call{.request =
                  json("{\"id\":\"its own\"" + (members.empty() ? "" : "," + members) + "}")};
    JsonObject& request = call.request;
    request.set("command", line.substr(0, end));
    if (!request.contains("deviceSerial") && !request.contains("sessionId")) {
      request.set("deviceSerial", world.devices[0].device->serial);
      request.set("sessionId", world.devices[0].sessionId);
    }
    const View shown = view();
    if (const std::string* name = request.findString("on")) {
      const auto node = std::ranges::find(shown.nodes, *name, &VisibleNode::resourceId);
      request.set("nodeId", node == shown.nodes.end() ? 0 : node->id);
    }
    if (request.contains("nodeId") && !request.contains("stateSignature")) {
      request.set("stateSignature", shown.signature);
    }
    const std::string* letter = request.findString("stateSignature");
    if (letter != nullptr && letter->size() == 1) {
      const auto place = static_cast<std::size_t>(letter->front() - 'A');
      if (place < screens.size()) request.set("stateSignature", screens[place]);
    }
    Turn turn;
    while (!(turn = takeTurn(world, call, now)).answer) now += turn.askAgainIn;
    EXPECT_EQ("its own", *turn.answer->findString("id"));
    const std::string* auditId = turn.answer->findString("auditId");
    EXPECT_TRUE(auditId != nullptr && *auditId > lastAuditId) << line;
    if (auditId != nullptr) lastAuditId = *auditId;
    return std::move(*turn.answer);
  }
};

/// An answer in a line: why it was refused, or what was done, waited for, found changed, warned of.
std::string outcomeOf(const JsonObject& answer) {
  if (const JsonObject* error = answer.findObject("error")) {
    EXPECT_EQ(false, answer.findBoolean("ok"));
    return "refused: " + *error->findString("message");
  }
  EXPECT_EQ(true, answer.findBoolean("ok"));
  const JsonObject* action = answer.findObject("action");
  std::string outcome = action != nullptr ? *action->findString("message") : "ok";
  if (const auto isStable = answer.findBoolean("stable")) {
    outcome = *isStable ? "stable" : "moving";
    if (answer.findBoolean("unchanged") == true) outcome += " unchanged";
    outcome += " after " + answer.findNumber("waitedMs")->text() + " ms";
  }
  if (answer.contains("uiState")) outcome += ", uiState";
  if (const JsonObject* diff = answer.findObject("uiDiff")) {
    outcome += ", uiDiff";
    for (const auto& [kind, sign] : {std::pair("added", " +"), {"changed", " ~"}}) {
      for (const JsonValue& node : *diff->findArray(kind)) {
        outcome += sign + *node.asObject()->findString("resourceId");
      }
    }
    for (const JsonValue& name : *diff->findArray("removed")) outcome += " -" + *name.asString();
  }
  if (const JsonArray* warnings = answer.findArray("warnings")) {
    outcome += " [" + *warnings->front().asString() + "]";
  }
  return outcome;
}

/// Cases, each with its name and a line for each call: the screen that is shown behind it, the
/// call, and the outcome, of which "..." leaves out the rest. Screens are lettered as they are
/// first seen in a case, which begins with A: the same letter is the same signature, another
/// letter another one.
const std::string transcript = R"(A toggle goes there and back
B launchApp "packageName":"com.example.settings" -> Launched Settings.
C uiClickElement "on":"settings.wifi" -> Turned Wi-Fi off.
B uiClickElement "on":"settings.wifi" -> Turned Wi-Fi on.

Screens open and close
B launchApp "packageName":"com.example.settings" -> Launched Settings.
C uiClickElement "on":"settings.about" -> Opened About phone.
B key "key":"back" -> Went back to Settings.
D key "key":"recents" -> Showed the recent apps.
B uiClickElement "on":"recents.apps[0]" -> Launched Settings.
A key "key":"home" -> Went to the home screen.
A key "key":"back" -> Pressed back. [The home screen is shown already: there is nothing to go back to.]

Lists move and come back, and an app that loads changes by itself
B launchApp "packageName":"com.example.shopping" -> Launched Shopping.
C wait "durationMs":60 -> ok
D wait "durationMs":60 -> ok
D wait "durationMs":60 -> ok
E uiScrollElement "on":"shopping.items","direction":"down" -> Scrolled down by 5 lines.
E key "key":"page_down" -> Scrolled. [The list did not move: it ends here.]
F swipe "startX":50,"startY":300,"endX":60,"endY":516 -> Scrolled up by 3 lines.
G key "key":"dpad_down" -> Scrolled down by 1 line.
D uiScrollElement "on":"shopping.items","direction":"up" -> Scrolled up by 3 lines.
H uiClickElement "on":"shopping.items[1]" -> Ticked "Bread".
I key "key":"dpad_down" -> Scrolled down by 1 line.
I uiWaitForStable "stateSignature":"D" -> stable after 600 ms, uiDiff +shopping.items[9] ~shopping.items ~shopping.items[1] -shopping.items[0]

Text goes where the focus is, and delete takes whole characters
B launchApp "packageName":"com.example.shopping" -> Launched Shopping.
C wait "durationMs":200 -> ok
C text "text":"a" -> refused: The Quillmere IME is not active: no text field has the focus...
D uiFocusElement "on":"shopping.newItem" -> Focused "Add an item"; the Quillmere IME is active.
E text "text":"a" -> Typed "a".
F text "text":"é" -> Typed "é".
G text "text":"🙂" -> Typed "🙂".
F key "key":"delete" -> Deleted the last character.
E key "key":"delete" -> Deleted the last character.
D key "key":"delete" -> Deleted the last character.
D key "key":"delete" -> Pressed delete. [There is nothing to delete.]
D key "key":"enter" -> Nothing was added. [The text field is empty.]
H uiSetText "on":"shopping.newItem","text":" a " -> Set the text to " a ".
D key "key":"enter" -> Added "a".
C key "key":"escape" -> Closed the keyboard.

An app that needs the user's words may be looked at, and wants to hear them once
B launchApp "packageName":"com.example.messages" -> Launched Messages.
B observeScreen -> ok
B uiClickElement "on":"messages.chats[0]" -> refused: Messages needs the user's explicit acknowledgement...
B tap "x":50,"y":170,"userAcknowledgementText":"I confirm." -> refused: These are not the words of...
C tap "x":50,"y":170,"userAcknowledgementText":" I confirm that AI may use Messages for me." -> Opened Robin.
B key "key":"back" -> Went back to Messages.

Once control is stopped, looking goes on and acting does not
A stopControl -> AI control is off until the app restarts.
A launchApp "packageName":"com.example.settings" -> refused: AI control has been stopped...
A tap "x":50,"y":300 -> refused: AI control has been stopped. It is off until the app restarts.
A uiGetState -> ok, uiState

Waits last until the screen is stable, and no longer
A uiWaitForStable "stableMs":700 -> stable after 750 ms, uiState
A uiWaitForStable "stateSignature":"A" -> stable unchanged after 0 ms, uiDiff
A uiWaitForStable "stateSignature":"A","expectedPackageName":"x","timeoutMs":200 -> moving unchanged after 200 ms, uiDiff [Another package than expectedPackageName was in front when the time was up.]
B launchApp "packageName":"com.example.browser" -> Launched Browser.
C uiWaitForStable "timeoutMs":40 -> moving after 40 ms, uiState [The screen was still changing when the time was up.]
D uiWaitForStable "stateSignature":"A","stableMs":250,"pollIntervalMs":100 -> stable after 700 ms, uiDiff +browser.address...
A key "key":"home" -> Went to the home screen.
A uiWaitForStable "stateSignature":"D","includeFullState":true -> stable after 600 ms, uiState, uiDiff +home.greeting...

What makes no sense is refused and changes nothing
A Tap -> refused: There is no such command.
A adbCommand "adbCommand":"ls" -> refused: ADB commands are never run. The request has been audited.
A tap "sessionId":"" -> refused: sessionId or deviceSerial must be given.
A tap "sessionId":"x" -> refused: No active session has this sessionId...
A tap "deviceSerial":"QM2C9B4402" -> refused: The device QM2C9B4402 has no active session...
A tap "deviceSerial":"QM2C9B4402","sessionId":"5E551011-0000-4000-8000-000000000001" -> refused: This session mirrors another device than deviceSerial.
A startSession "deviceSerial":"QM2C9B4402" -> refused: The device QM2C9B4402 is offline...
A listApps "deviceSerial":"?" -> refused: There is no device with the serial "?".
A tap "x":540,"y":1 -> refused: x must be a number from 0 to below 540.
A tap "x":1,"y":1e400 -> refused: y must be a number from 0 to below 1200.
A key "key":"Home" -> refused: key must be one of the allowed key names.
A uiClickElement "nodeId":2,"stateSignature":"B" -> refused: The screen has changed...
A uiClickElement "nodeId":6 -> refused: No node of this screen has the nodeId 6; the last one is 5.
A uiClickElement "nodeId":1 -> refused: The node home.greeting can't be clicked.
A uiSetText "nodeId":1,"text":"a" -> refused: The node home.greeting takes no text.
A uiScrollElement "nodeId":1,"direction":"up" -> refused: The node home.greeting can't be scrolled.
A launchApp "packageName":"?" -> refused: The package ? has nothing to launch.
)";

TEST(Simulator, AnswersAsItIsWrittenAndTheSignatureIsTheScreen) {
  std::istringstream lines(transcript);
  std::optional<Desk> desk;
  std::string name;
  for (std::string line; std::getline(lines, line);) {
    if (line.empty()) {
      desk.reset();
    } else if (!desk) {
      desk.emplace();
      name = line;
    } else {
      SCOPED_TRACE(name + ": " + line);
      const std::size_t arrow = line.find(" -> ");
      const JsonObject answer = desk->ask(line.substr(2, arrow - 2));
      const std::string signature = desk->view().signature;
      auto screen = std::ranges::find(desk->screens, signature);
      if (screen == desk->screens.end()) screen = desk->screens.insert(screen, signature);
      const std::string letter(1, static_cast<char>('A' + (screen - desk->screens.begin())));
      std::string outcome = letter + line.substr(1, arrow + 3) + outcomeOf(answer);
      if (line.ends_with("...")) outcome = outcome.substr(0, line.size() - 3) + "...";
      EXPECT_EQ(line, outcome);
      if (const JsonObject* told = answer.findObject("visibleState")) {
        EXPECT_EQ(signature, *told->findString("stateSignature"));
      }
    }
  }
}

TEST(Simulator, EveryNodeLiesOnTheMirrorAndATapOnItsMiddleIsAClick) {
  std::deque<Desk> unseen(1);
  std::set<std::string> layouts;
  std::set<std::string_view> titles;
  for (; !unseen.empty(); unseen.pop_front()) {
    const Desk& desk = unseen.front();
    const View view = desk.view();
    std::string layout(view.title);
    for (const VisibleNode& node : view.nodes) layout += " " + node.resourceId();
    if (!layouts.insert(layout).second) continue;
    titles.insert(view.title);

    const auto after = [&](const std::string& request) {
      Desk next = desk;
      const std::string answer = compactJson(next.ask(
          request + R"(,"userAcknowledgementText":"I confirm that AI may use Messages for me.")"));
      unseen.push_back(next);
      next.now += WorldTime(1000);
      unseen.push_back(next);
      return answer;
    };
    for (const std::string_view key : {"back", "recents", "dpad_down", "tab"}) {
      after("key \"key\":\"" + std::string(key) + "\"");
    }
    for (const VisibleNode& node : view.nodes) {
      SCOPED_TRACE(layout + ", " + node.resourceId());
      const auto& [x, y, width, height] = node.bounds;
      EXPECT_TRUE(x >= 0 && y >= 0 && width > 0 && height > 0 && x + width <= mirror.width &&
                  y + height <= mirror.height);
      if (!node.isClickable) continue;
      EXPECT_EQ(after("uiClickElement \"nodeId\":" + std::to_string(node.id)),
                after("tap \"x\":" + std::to_string(x + width / 2) +
                      ",\"y\":" + std::to_string(y + height / 2)));
    }
  }
  EXPECT_EQ(allScreens().size(), titles.size());
}

TEST(Simulator, RefusesWrongOptions) {
  const std::pair<std::vector<const char*>, std::string_view> cases[] = {
      {{"--quiet", "now"}, "There is no option now."},
      {{"--socket"}, "--socket takes a value."},
      {{"--screenshot", ""}, "--screenshot takes a value."},
      {{"--delay", "600001"}, "--delay takes a whole number from 0 to 600000."},
      {{"--drop-after", "-1"}, "--drop-after takes a whole number from 0 to 4294967295."},
      {{"--drop-after", "1k"}, "--drop-after takes a whole number from 0 to 4294967295."},
      {{"--fail", "tapp"}, "--fail takes the name of a command, such as tap."},
  };
  for (const auto& [arguments, text] : cases) {
    try {
      static_cast<void>(parseOptions(arguments));
      ADD_FAILURE() << "accepted: " << text;
    } catch (const UsageError& error) {
      EXPECT_EQ(text, error.what());
    }
  }
}

TEST(Simulator, WritesAndReadsBase64) {
  const std::string_view texts[] = {"", "Zg==", "Zm8=", "Zm9v", "Zm9vYg=="};
  for (std::size_t length = 0; length < std::size(texts); ++length) {
    EXPECT_EQ(texts[length], base64(std::string_view("foob").substr(0, length)));
    EXPECT_EQ(std::string_view("foob").substr(0, length), bytesOfBase64(texts[length]));
  }
  EXPECT_EQ("AP+A", base64(std::string_view("\0\xFF\x80", 3)));
  for (const std::string_view wrong :
       {"Z", "Zg", "Zg=", "====", "Zh==", "Zg=g", "Zm9-", "Zm9v\n"}) {
    EXPECT_EQ(std::nullopt, bytesOfBase64(wrong)) << wrong;
  }
}

/// The running simulator.
struct Simulator {
  ServerProcess process;
  InputStream output{process.outputDescriptor()};
  /// Read when it is made: from then on it listens, or has said why not.
  const std::string firstLine = line();

  /// `redirection` is the shell's: which of the outputs are read here.
  explicit Simulator(const TemporaryHome& home, const std::string& options = "",
                     const std::string& redirection = "2>&1")
      : process(
            {.program = "/bin/sh",
             .arguments = {"-c", "exec '" QUILLMERE_SIMULATOR "' " + options + " " + redirection},
             .home = home.path()}) {}

  /// The next line, a call's without its time; empty at the end.
  std::string line() {
    constexpr std::size_t timeLength = std::string_view("00:00:00.000  ").size();
    std::string text;
    while (!text.ends_with('\n') && output.readThrough('\n', 4096, text)) {
    }
    if (!text.empty()) text.pop_back();
    return text.substr(text.find('.') == 8 ? timeLength : 0);
  }
  std::optional<int> end(int signal = SIGTERM) {
    ::kill(process.processID(), signal);
    return process.waitForExit();
  }
};

struct SimulatedApp : testing::Test {
  TemporaryHome home;
  ServerProcess server{{.program = QUILLMERE_SERVER, .home = home.path()}};

  SimulatedApp() {
    server.send("{\"jsonrpc\":\"2.0\",\"id\":0,\"method\":\"initialize\"}\n");
    EXPECT_TRUE(server.receive());
  }
  void beginCall(int id) {
    server.send(R"({"jsonrpc":"2.0","method":"tools/call","params":{"name":)"
                R"("quillmere.devices.list"},"id":)" +
                std::to_string(id) + "}\n");
  }
  /// The next answer: its id, and the first line of its text or of its error's.
  std::string next() {
    const auto message = server.receive();
    if (!message) return "(nothing)";
    const JsonObject* part = message->findObject("error");
    const bool isError = part != nullptr;
    if (!isError) part = message->findObject("result")->findArray("content")->front().asObject();
    const std::string& text = *part->findString(isError ? "message" : "text");
    return message->findNumber("id")->text() + ": " + text.substr(0, text.find('\n'));
  }
  std::string call(int id) {
    beginCall(id);
    return next();
  }
};

TEST_F(SimulatedApp, TheServerOutlivesItsFaults) {
  const std::string closed = "1: Quillmere closed the MCP control connection.";
  const std::string succeeded = "1: Quillmere tool call succeeded.";
  const std::string dropped = "listDevices       ok, then dropped on purpose";
  const std::string answered = "listDevices       ok";
  struct Case {
    std::string options, outcome, line;
  };
  const Case cases[] = {
      {"--drop-after 0", closed, dropped},
      {"--drop-after 2", closed, dropped},
      {"--drop-after 4", closed, dropped},
      {"--drop-after 50", closed, dropped},
      {"--drop-after 50000", succeeded, answered},
      {"--truncate", closed, "listDevices       ok, then cut off on purpose"},
      {"--delay 20", succeeded, answered},
      {"--fail tap", succeeded, answered},
      {"--fail tap --fail listDevices",
       "1: Quillmere tool call failed: The simulator was asked to fail this command.",
       "listDevices       refused: simulatedFailure"},
  };
  for (const Case& each : cases) {
    SCOPED_TRACE(each.options);
    {
      Simulator faulty(home, each.options);
      EXPECT_EQ(each.outcome, call(1));
      EXPECT_EQ(each.line, faulty.line());
    }
    const Simulator healthy(home);
    EXPECT_EQ(succeeded, call(1));
  }
}

TEST_F(SimulatedApp, SilenceEndsWithTheCallOrTheSimulator) {
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
    Simulator silent(home, "--silence");
    beginCall(1);
    EXPECT_EQ("listDevices       unanswered on purpose", silent.line());
    server.send(R"({"jsonrpc":"2.0","method":"notifications/cancelled","params":{"requestId":1}})"
                "\n");
    EXPECT_EQ("listDevices       the client hung up", silent.line());
    beginCall(2);
    EXPECT_EQ("listDevices       unanswered on purpose", silent.line());
    EXPECT_EQ(0, silent.end(signal));
    EXPECT_FALSE(std::filesystem::exists(home.releaseSocket()));
    EXPECT_EQ("2: Quillmere closed the MCP control connection.", next());
    const Simulator healthy(home);
    EXPECT_EQ("3: Quillmere tool call succeeded.", call(3));
  }
}

TEST_F(SimulatedApp, TakesAStaleSocketAndNoOther) {
  const std::string name = "quillmere-desktop-simulator: ";
  Simulator wrong(home, "--wrong", "2>&1 >/dev/null");
  EXPECT_EQ(name + "There is no option --wrong.", wrong.firstLine);
  EXPECT_TRUE(wrong.line().starts_with("usage: quillmere-desktop-simulator ["));
  EXPECT_EQ("", wrong.line());
  EXPECT_EQ(2, wrong.process.waitForExit());

  Simulator first(home);
  EXPECT_EQ("Listening on " + home.releaseSocket(), first.firstLine);
  Simulator second(home);
  EXPECT_EQ(name + "another app is listening already, or a file is in the way: " +
                home.releaseSocket() + ": Address already in use",
            second.firstLine);
  EXPECT_EQ(1, second.process.waitForExit());
  EXPECT_EQ("1: Quillmere tool call succeeded.", call(1));
  EXPECT_EQ(128 + SIGKILL, first.end(SIGKILL));
  EXPECT_TRUE(std::filesystem::exists(home.releaseSocket()));
  const Simulator third(home);
  EXPECT_EQ("2: Quillmere tool call succeeded.", call(2));
}

TEST_F(SimulatedApp, AMalformedFrameEndsItsConnectionOnly) {
  using namespace std::string_view_literals;
  Simulator app(home);
  std::vector<UnixSocket> clients;
  const auto send = [&](std::string_view bytes) {
    clients.push_back(*UnixSocket::create());
    EXPECT_EQ(0, clients.back().connectTo(home.releaseSocket()));
    EXPECT_EQ(bytes.size(), clients.back().send(bytes));
  };
  const std::string request = controlFrame(R"({"command":"listSessions"})");
  send(std::string_view(request).substr(0, 10));
  const std::pair<std::string_view, std::string_view> cases[] = {
      {"\0\0\0\0"sv, "its length is 0"},       {"\0\x10\0\1"sv, "its length is 1048577"},
      {"\0\0\0\2{]"sv, "its body is no JSON"}, {"\0\0\0\2[]"sv, "its body is no JSON object"},
      {"\0\0"sv, "it ends too early"},
  };
  char byte = 0;
  for (const auto& [frame, line] : cases) {
    send(frame);
    if (frame.size() < controlPrefixBytes) clients.back().shutDown();
    EXPECT_EQ(0U, clients.back().receive(&byte, 1)) << line;
    EXPECT_EQ("malformed frame   " + std::string(line), app.line());
  }
  EXPECT_EQ(request.size() - 10, clients[0].send(std::string_view(request).substr(10)));
  EXPECT_EQ(1U, clients[0].receive(&byte, 1));
  EXPECT_EQ("listSessions      ok", app.line());
}

}  // namespace
}  // namespace quillmere
