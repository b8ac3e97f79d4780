// Plays one believable task of an AI through the real server, against the desktop app simulator.
#include <unistd.h>

#include <algorithm>
#include <array>
#include <exception>
#include <fstream>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "platform/file_system.hpp"
#include "platform/process.hpp"
#include "platform/standard_streams.hpp"
#include "shared/server_info.hpp"
#include "simulator/base64.hpp"
#include "simulator/demo_client.hpp"

namespace {

using namespace quillmere;

constexpr std::string_view newItem = "Oat milk";

void print(int descriptor, std::string_view text) {
  static_cast<void>(writeAll(descriptor, {text, "\n"}));
}

DemoFailure missing(std::string_view kind, std::string_view key) {
  return DemoFailure("the answer has no " + std::string(kind) + " \"" + std::string(key) + "\"");
}

const JsonObject& objectIn(const JsonObject& object, std::string_view key) {
  const JsonObject* member = object.findObject(key);
  if (member == nullptr) throw missing("object", key);
  return *member;
}

std::string textIn(const JsonObject& object, std::string_view key) {
  const std::string* member = object.findString(key);
  if (member == nullptr) throw missing("text", key);
  return *member;
}

/// A screen as the AI has read it.
class UiState {
 public:
  explicit UiState(const JsonObject& answer)
      : state(objectIn(answer, "uiState")), signature(textIn(state, "stateSignature")) {
    expect(state.findArray("nodes") != nullptr, "the UI state has no nodes");
  }

  /// The arguments of an action on the node whose member `key` is `value`.
  [[nodiscard]] JsonObject target(const std::string& sessionId, std::string_view key,
                                  std::string_view value) const {
    const JsonObject* node = find(key, value);
    expect(node != nullptr, "the screen shows no \"" + std::string(value) + "\"");
    const JsonValue* id = node->find("nodeId");
    expect(id != nullptr, "the node has no id");
    return {{"sessionId", sessionId}, {"nodeId", *id}, {"stateSignature", signature}};
  }

  [[nodiscard]] const JsonObject* find(std::string_view key, std::string_view value) const {
    for (const JsonValue& node : *state.findArray("nodes")) {
      const JsonObject* each = node.asObject();
      const std::string* text = each != nullptr ? each->findString(key) : nullptr;
      if (text != nullptr && *text == value) return each;
    }
    return nullptr;
  }

  /// The texts on the screen, in one line.
  [[nodiscard]] std::string texts() const {
    std::string line;
    for (const JsonValue& node : *state.findArray("nodes")) {
      const JsonObject* each = node.asObject();
      const std::string* text = each != nullptr ? each->findString("text") : nullptr;
      if (text == nullptr || text->empty()) continue;
      if (!line.empty()) line += ", ";
      line += *text;
    }
    return line;
  }

 private:
  JsonObject state;
  std::string signature;
};

UiState readScreen(DemoClient& ai, const std::string& sessionId) {
  UiState state(ai.call("quillmere.ui.get_state", {{"sessionId", sessionId}}));
  ai.tell("sees", state.texts());
  return state;
}

void shakeHands(DemoClient& ai) {
  ai.step("Shake hands");
  ai.tell("asks", "initialize, protocol " + std::string(newestProtocolVersion));
  const JsonObject response =
      ai.request("initialize", {{"protocolVersion", newestProtocolVersion}});
  const JsonObject& result = objectIn(response, "result");
  const JsonObject& info = objectIn(result, "serverInfo");
  ai.tell("gets", textIn(info, "name") + " " + textIn(info, "version") + ", protocol " +
                      textIn(result, "protocolVersion"));
  expect(textIn(result, "protocolVersion") == newestProtocolVersion, "another protocol was chosen");
  ai.notify("notifications/initialized", {});

  ai.step("Ask which tools there are");
  ai.tell("asks", "tools/list");
  const JsonObject listed = ai.request("tools/list", {});
  const JsonArray* tools = objectIn(listed, "result").findArray("tools");
  expect(tools != nullptr && tools->size() == 19, "there should be 19 tools");
  std::string names;
  for (const JsonValue& tool : *tools) {
    if (!names.empty()) names += names.size() - names.rfind('\n') > 70 ? ",\n" : ", ";
    names += tool.asObject() != nullptr ? textIn(*tool.asObject(), "name") : "?";
  }
  ai.tell("gets", names);
}

/// Returns the serial of the phone that can be mirrored.
std::string findPhone(DemoClient& ai) {
  ai.step("Find the phone");
  const JsonObject answer = ai.call("quillmere.devices.list", {});
  const JsonArray* devices = answer.findArray("devices");
  expect(devices != nullptr && !devices->empty() && devices->front().asObject() != nullptr,
         "there should be a phone");
  std::string serial = textIn(*devices->front().asObject(), "serial");

  ai.step("See whether it is mirrored already");
  const JsonObject sessions = ai.call("quillmere.sessions.list", {{"deviceSerial", serial}});
  expect(textIn(objectIn(sessions, "nextRecommendedTool"), "name") == "quillmere.session.start",
         "the server should recommend to start a session");
  return serial;
}

struct Session {
  std::string id;
  /// Signature of the screen with which the session began.
  std::string firstSignature;
};

Session startSession(DemoClient& ai, const std::string& serial) {
  ai.step("Start a Phone Screen session");
  const JsonObject answer = ai.call("quillmere.session.start", {{"deviceSerial", serial}});
  return {textIn(objectIn(objectIn(answer, "action"), "session"), "sessionId"),
          textIn(objectIn(answer, "visibleState"), "stateSignature")};
}

void openShopping(DemoClient& ai, const std::string& serial, const Session& session) {
  ai.step("Find and open the shopping list, and wait until it has loaded");
  ai.call("quillmere.apps.list", {{"deviceSerial", serial}});
  ai.call("quillmere.app.launch",
          {{"deviceSerial", serial}, {"packageName", "com.example.shopping"}});
  ai.call(
      "quillmere.ui.wait_for_stable",
      {{"sessionId", session.id}, {"stableMs", 250}, {"stateSignature", session.firstSignature}});
}

void addItem(DemoClient& ai, const std::string& sessionId) {
  ai.step("Read the screen");
  const UiState before = readScreen(ai, sessionId);
  expect(before.find("text", newItem) == nullptr, "nobody has added the item yet");

  ai.step("Tap the text field and type");
  const JsonObject* field = before.find("hint", "Add an item");
  expect(field != nullptr, "the screen should show a text field");
  const JsonObject& bounds = objectIn(*field, "bounds");
  const auto middle = [&](std::string_view start, std::string_view length) {
    const JsonNumber* from = bounds.findNumber(start);
    const JsonNumber* size = bounds.findNumber(length);
    expect(from != nullptr && size != nullptr, "the text field should have bounds");
    return from->integer().value_or(0) + size->integer().value_or(0) / 2;
  };
  ai.call("quillmere.input.tap",
          {{"sessionId", sessionId}, {"x", middle("x", "width")}, {"y", middle("y", "height")}});
  ai.call("quillmere.input.text", {{"sessionId", sessionId}, {"text", newItem}});

  ai.step("Click Add by the screen as it was before: the app notices");
  ai.call("quillmere.ui.click_element", before.target(sessionId, "text", "Add"), true);

  ai.step("Read the screen again, and click Add");
  const UiState typed = readScreen(ai, sessionId);
  ai.call("quillmere.ui.click_element", typed.target(sessionId, "text", "Add"));

  ai.step("Scroll down and check the result");
  UiState shown = readScreen(ai, sessionId);
  JsonObject scroll = shown.target(sessionId, "resourceId", "shopping.items");
  scroll.set("direction", "down");
  ai.call("quillmere.ui.scroll_element", std::move(scroll));
  shown = readScreen(ai, sessionId);
  expect(shown.find("text", newItem) != nullptr, "the new item should be on the list");
}

void refuseBadArgument(DemoClient& ai, const std::string& sessionId) {
  ai.step("Get an argument wrong: the server refuses, and the app never hears of it");
  ai.callBadly("quillmere.input.swipe", {{"sessionId", sessionId},
                                         {"startX", 270},
                                         {"startY", 900},
                                         {"endX", 270},
                                         {"endY", 300},
                                         {"durationMs", 5}});
}

void cancelCall(DemoClient& ai, const std::string& serial) {
  ai.step("Cancel a call that takes long, while others go on");
  const std::int64_t id = ai.beginCall("quillmere.wait", {{"durationMs", 10000}});
  // Answered first, although it was asked later.
  ai.call("quillmere.sessions.list", {{"deviceSerial", serial}});
  ai.tell("asks", "notifications/cancelled for the call that still waits, then ping");
  ai.notify("notifications/cancelled", {{"requestId", id}, {"reason", "the user changed plans"}});
  expect(ai.request("ping", {}).contains("result"), "the ping should be answered");
  ai.tell("gets", "the answer to the ping, and none to the cancelled call");
}

void tellRobin(DemoClient& ai, const std::string& serial, const std::string& sessionId) {
  ai.step("Open the messages: the app wants the user's word first");
  ai.call("quillmere.app.launch",
          {{"deviceSerial", serial}, {"packageName", "com.example.messages"}});
  UiState screen = readScreen(ai, sessionId);
  JsonObject click = screen.target(sessionId, "text", "Robin");
  const JsonObject refusal = ai.call("quillmere.ui.click_element", click, true);

  ai.step("The user agrees; try again with the user's words");
  click.set("userAcknowledgementText", textIn(refusal, "requiredUserAcknowledgementText"));
  ai.call("quillmere.ui.click_element", std::move(click));
  screen = readScreen(ai, sessionId);
  JsonObject draft = screen.target(sessionId, "hint", "Write a message");
  draft.set("text", std::string(newItem) + " is on the list.");
  ai.call("quillmere.ui.set_text", std::move(draft));
  ai.call("quillmere.input.key", {{"sessionId", sessionId}, {"key", "ENTER"}});
  ai.call("quillmere.input.key", {{"sessionId", sessionId}, {"key", "back"}});
  screen = readScreen(ai, sessionId);
  expect(screen.find("text", std::string(newItem) + " is on the list.") != nullptr,
         "the message should have been sent");
}

void stopControl(DemoClient& ai, const std::string& sessionId) {
  ai.step("Stop AI control: from now on every action is refused");
  ai.call("quillmere.control.stop", {});
  ai.call("quillmere.input.key", {{"sessionId", sessionId}, {"key", "home"}}, true);
}

void keepScreenshot(DemoClient& ai, const std::string& sessionId, const std::string& path) {
  ai.step("Look at the final screen");
  const JsonObject answer =
      ai.call("quillmere.screen.observe", {{"sessionId", sessionId}, {"includeImage", true}});
  const auto png = bytesOfBase64(textIn(objectIn(answer, "image"), "base64"));
  expect(png && png->starts_with("\x89PNG"), "the answer should hold a PNG");
  std::ofstream file(path, std::ios::binary);
  file << *png << std::flush;
  expect(static_cast<bool>(file), "the screenshot can't be written");
  ai.tell("kept", path);
}

void play(DemoClient& ai, const std::string& screenshot) {
  shakeHands(ai);
  const std::string serial = findPhone(ai);
  const Session session = startSession(ai, serial);
  openShopping(ai, serial, session);
  addItem(ai, session.id);
  refuseBadArgument(ai, session.id);
  cancelCall(ai, serial);
  tellRobin(ai, serial, session.id);
  stopControl(ai, session.id);
  keepScreenshot(ai, session.id, screenshot);
  expect(ai.finish(), "the server should end with status 0 and without another word");
}

}  // namespace

int main(int argumentCount, char** arguments) {
  prepareProcess();
  const std::span given(arguments, static_cast<std::size_t>(argumentCount));
  const bool isColoured = given.size() == 4 && std::string_view(given[3]) == "--colour";
  if (given.size() != 3 && !isColoured) {
    print(STDERR_FILENO, "usage: quillmere-demo SERVER SCREENSHOT.png [--colour]");
    return 2;
  }
  try {
    DemoClient ai(given[1], homeDirectory(), isColoured);
    play(ai, given[2]);
    print(STDOUT_FILENO, "\nPASSED: all " + std::to_string(ai.stepCount()) +
                             " steps of the demo went as they should.");
    return 0;
  } catch (const std::exception& failure) {
    print(STDOUT_FILENO, std::string("\nFAILED: ") + failure.what() + ".");
    return 1;
  }
}
