// The simulated desktop app: its rules as pure functions, then the program with the real server.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "simulator/commands.hpp"
#include "support/running_server.hpp"

namespace quillmere::simulator {
namespace {

/// A mirrored phone that takes one request after the other, and a clock that only waits advance.
struct Desk {
  World world = makeWorld();
  WorldTime now{0};
  std::string lastAuditId;
  /// Signatures in the order of their first appearance.
  std::vector<std::string> screens;

  Desk() {
    ask("startSession");
    screens = {view().signature};
  }

  View view() const { return viewOf(world.devices[0].phone, now); }

  /// `line` is a call as the transcript writes it: a command and the members of its request.
  JsonText ask(std::string_view line) {
    const std::size_t end = std::min(line.find(' '), line.size());
    const auto document = parseJson("{" + std::string(line.substr(end)) + "}");
    const JsonObject given = document->object();
    JsonText request{{"id", "its own"}, {"command", line.substr(0, end)}};
    std::vector<std::string_view> replaced = {"command"};
    const auto set = [&](std::string_view key, const JsonText& value) {
      request.set(key, value);
      replaced.push_back(key);
    };
    if (!given.contains("deviceSerial") && !given.contains("sessionId")) {
      set("deviceSerial", world.devices[0].device->serial);
      set("sessionId", world.devices[0].sessionId);
    }
    const View shown = view();
    const auto name = given.findString("on");
    if (name) {
      const auto node = std::ranges::find(shown.nodes, name->view(), &VisibleNode::resourceId);
      set("nodeId", node == shown.nodes.end() ? 0 : node->id);
    }
    const auto letter = given.findString("stateSignature");
    if (letter && letter->view().size() == 1) {
      const auto place = static_cast<std::size_t>(letter->view().front() - 'A');
      if (place < screens.size()) set("stateSignature", screens[place]);
    } else if ((name || given.contains("nodeId")) && !given.contains("stateSignature")) {
      set("stateSignature", shown.signature);
    }
    request.setMembersOf(given, replaced);
    const auto whole = parseJson(request.str());
    Call call{.request = whole->object()};
    Turn turn;
    while (!(turn = takeTurn(world, call, now)).answer) now += turn.askAgainIn;
    const auto answer = parseJson(turn.answer->str());
    EXPECT_EQ("its own", answer->object().findString("id").value().view());
    const auto auditId = answer->object().findString("auditId");
    EXPECT_TRUE(auditId && auditId->view() > lastAuditId) << line;
    if (auditId) lastAuditId = auditId->view();
    return std::move(*turn.answer);
  }
};

/// A response in one line: the refusal, or the action, wait, changes and warning.
std::string outcomeOf(const JsonObject& answer) {
  const auto text = [](const JsonObject& object, std::string_view key) {
    return std::string(object.findString(key).value().view());
  };
  if (const auto error = answer.findObject("error")) {
    EXPECT_EQ(false, answer.findBoolean("ok"));
    return "refused: " + text(*error, "message");
  }
  EXPECT_EQ(true, answer.findBoolean("ok"));
  const auto action = answer.findObject("action");
  std::string outcome = action ? text(*action, "message") : "ok";
  if (const auto isStable = answer.findBoolean("stable")) {
    outcome = *isStable ? "stable" : "moving";
    if (answer.findBoolean("unchanged") == true) outcome += " unchanged";
    outcome.append(" after ").append(answer.findNumber("waitedMs")->text()).append(" ms");
  }
  if (answer.contains("uiState")) outcome += ", uiState";
  if (const auto diff = answer.findObject("uiDiff")) {
    outcome += ", uiDiff";
    for (const auto& [kind, sign] : {std::pair("added", " +"), {"changed", " ~"}}) {
      const JsonArray nodes = diff->findArray(kind).value();
      for (const JsonValue node : nodes) outcome += sign + text(*node.asObject(), "resourceId");
    }
    const JsonArray names = diff->findArray("removed").value();
    for (const JsonValue name : names) outcome.append(" -").append(name.asString()->view());
  }
  if (const auto warnings = answer.findArray("warnings")) {
    outcome.append(" [").append((*warnings->begin()).asString()->view()).append("]");
  }
  return outcome;
}

TEST(Simulator, AnswersAsTheTranscriptSaysAndSignaturesMatchScreens) {
  std::ifstream lines(QUILLMERE_TRANSCRIPT);
  std::optional<Desk> desk;
  std::string name;
  int calls = 0;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with('#')) continue;
    if (line.empty()) {
      desk.reset();
    } else if (!desk) {
      desk.emplace();
      name = line;
    } else {
      SCOPED_TRACE(testing::Message() << name << ": " << line);
      const std::size_t arrow = line.find(" -> ");
      const auto document = parseJson(desk->ask(line.substr(2, arrow - 2)).str());
      const JsonObject answer = document->object();
      const std::string signature = desk->view().signature;
      auto screen = std::ranges::find(desk->screens, signature);
      if (screen == desk->screens.end()) screen = desk->screens.insert(screen, signature);
      const std::string letter(1, static_cast<char>('A' + (screen - desk->screens.begin())));
      std::string outcome = letter + line.substr(1, arrow + 3) + outcomeOf(answer);
      if (line.ends_with("...")) outcome = outcome.substr(0, line.size() - 3) + "...";
      EXPECT_EQ(line, outcome);
      ++calls;
      if (const auto shown = answer.findObject("visibleState")) {
        EXPECT_EQ(signature, shown->findString("stateSignature")->view());
      }
    }
  }
  EXPECT_GT(calls, 0) << "no transcript";
}

/// The running simulator.
struct Simulator {
  ServerProcess process;
  /// Read at construction: from then on it listens, or has said why not.
  const std::string firstLine = line();

  /// `redirection` is for the shell: which outputs we read.
  explicit Simulator(const std::string& options = "", const std::string& redirection = "2>&1")
      : process({.program = "/bin/sh",
                 .arguments = {"-c",
                               "exec '" QUILLMERE_SIMULATOR "' " + options + " " + redirection}}) {}

  /// The next line, without the time if it is about a call; empty at the end.
  std::string line() {
    constexpr std::size_t timeLength = std::string_view("00:00:00.000  ").size();
    const std::string text(process.receiveText().value_or(""));
    return text.substr(text.find('.') == 8 ? timeLength : 0);
  }
  int end(int signal = SIGTERM) {
    ::kill(process.processID(), signal);
    return process.waitForExit();
  }
};

struct SimulatedApp : RunningServer {
  std::string outcome(int id) {
    call(id);
    return nextShort();
  }
};

const std::string closed = "-32000 Quillmere closed the MCP control connection.";

TEST_F(SimulatedApp, TheServerSurvivesItsFaults) {
  const std::string dropped = "listDevices       ok, then dropped on purpose";
  const std::string answered = "listDevices       ok";
  struct Case {
    std::string options, outcome, line;
  };
  const Case cases[] = {
      {"--drop-after 0", closed, dropped},
      {"--drop-after 50", closed, dropped},
      {"--drop-after 50000", succeeded, answered},
      {"--truncate", closed, "listDevices       ok, then cut off on purpose"},
      {"--delay 20 --fail tap", succeeded, answered},
      {"--fail tap --fail listDevices",
       "Quillmere tool call failed: The simulator was asked to fail this command.",
       "listDevices       refused: simulatedFailure"},
  };
  for (const Case& each : cases) {
    SCOPED_TRACE(each.options);
    {
      Simulator faulty(each.options);
      EXPECT_EQ("1: " + each.outcome, outcome(1));
      EXPECT_EQ(each.line, faulty.line());
    }
    const Simulator healthy;
    EXPECT_EQ("1: " + succeeded, outcome(1));
  }
}

TEST_F(SimulatedApp, SilenceEndsWithTheCallOrTheSimulator) {
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
    Simulator silent("--silence");
    call(1);
    EXPECT_EQ("listDevices       unanswered on purpose", silent.line());
    cancel(1);
    EXPECT_EQ("listDevices       the client hung up", silent.line());
    call(2);
    EXPECT_EQ("listDevices       unanswered on purpose", silent.line());
    EXPECT_EQ(0, silent.end(signal));
    EXPECT_FALSE(std::filesystem::exists(home.releaseSocket()));
    EXPECT_EQ("2: " + closed, nextShort());
  }
}

}  // namespace
}  // namespace quillmere::simulator
