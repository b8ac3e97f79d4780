// Plays one believable task of an AI through the real server, against the desktop app simulator.
#include <unistd.h>

#include <algorithm>
#include <array>
#include <exception>
#include <fstream>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "demo/client.hpp"
#include "platform/base64.hpp"
#include "platform/process.hpp"
#include "platform/standard_streams.hpp"
#include "protocol/server_info.hpp"

namespace {

using namespace quillmere;
using namespace quillmere::demo;

constexpr std::string_view newItem = "Oat milk";

void print(int descriptor, std::string_view text) {
  static_cast<void>(writeAll(descriptor, {text, "\n"}));
}

DemoFailure missing(std::string_view kind, std::string_view key) {
  return DemoFailure("the response has no " + std::string(kind) + " \"" + std::string(key) + "\"");
}

JsonObject objectIn(const JsonObject& object, std::string_view key) {
  const auto member = object.findObject(key);
  if (!member) throw missing("object", key);
  return *member;
}

std::string textIn(const JsonObject& object, std::string_view key) {
  const auto member = object.findString(key);
  if (!member) throw missing("text", key);
  return std::string(member->view());
}

/// A screen as the AI has read it.
class UiState {
 public:
  explicit UiState(Answer given)
      : answer(std::move(given)),
        state(objectIn(answer.object, "uiState")),
        signature(textIn(state, "stateSignature")) {
    const auto shown = state.findArray("nodes");
    expect(shown.has_value(), "the UI state has no nodes");
    for (const JsonValue& node : *shown) {
      if (const auto object = node.asObject()) nodes.push_back(*object);
    }
  }

  /// The arguments of an action on the node whose member `key` is `value`.
  [[nodiscard]] JsonText target(const std::string& sessionId, std::string_view key,
                                std::string_view value) const {
    const auto node = find(key, value);
    expect(node.has_value(), "the screen shows no \"" + std::string(value) + "\"");
    const auto id = node->find("nodeId");
    expect(id.has_value(), "the node has no id");
    return {{"sessionId", sessionId}, {"nodeId", *id}, {"stateSignature", signature}};
  }

  [[nodiscard]] std::optional<JsonObject> find(std::string_view key, std::string_view value) const {
    for (const JsonObject& node : nodes) {
      if (node.findString(key) == value) return node;
    }
    return std::nullopt;
  }

  /// The texts on the screen, in one line.
  [[nodiscard]] std::string texts() const {
    std::string line;
    for (const JsonObject& node : nodes) {
      const auto text = node.findString("text");
      if (!text || text->view().empty()) continue;
      if (!line.empty()) line += ", ";
      line += text->view();
    }
    return line;
  }

 private:
  Answer answer;
  JsonObject state;
  std::vector<JsonObject> nodes;
  std::string signature;
};

UiState readScreen(DemoClient& ai, const std::string& sessionId) {
  UiState state(ai.call("quillmere.ui.get_state", {{"sessionId", sessionId}}));
  ai.say("sees", state.texts());
  return state;
}

void shakeHands(DemoClient& ai) {
  ai.step("Shake hands");
  ai.say("asks", "initialize, protocol " + std::string(newestProtocolVersion));
  const Answer response = ai.request("initialize", {{"protocolVersion", newestProtocolVersion}});
  const JsonObject result = objectIn(response.object, "result");
  const JsonObject info = objectIn(result, "serverInfo");
  ai.say("gets", textIn(info, "name") + " " + textIn(info, "version") + ", protocol " +
                     textIn(result, "protocolVersion"));
  expect(textIn(result, "protocolVersion") == newestProtocolVersion, "another protocol was chosen");
  ai.notify("notifications/initialized", JsonText::object());

  ai.step("List the tools");
  ai.say("asks", "tools/list");
  const Answer listed = ai.request("tools/list", JsonText::object());
  const auto tools = objectIn(listed.object, "result").findArray("tools");
  expect(tools && tools->size() == 19, "there should be 19 tools");
  std::string names;
  for (const JsonValue& tool : *tools) {
    if (!names.empty()) names += names.size() - names.rfind('\n') > 70 ? ",\n" : ", ";
    names += tool.asObject() ? textIn(*tool.asObject(), "name") : "?";
  }
  ai.say("gets", names);
}

/// Returns the serial of the phone that can be mirrored.
std::string findPhone(DemoClient& ai) {
  ai.step("Find the phone");
  const Answer answer = ai.call("quillmere.devices.list", JsonText::object());
  const auto devices = answer.object.findArray("devices");
  expect(devices && devices->size() > 0, "there should be a phone");
  const auto phone = (*devices->begin()).asObject();
  expect(phone.has_value(), "a phone should be an object");
  std::string serial = textIn(*phone, "serial");

  ai.step("Check whether it is mirrored already");
  const Answer sessions = ai.call("quillmere.sessions.list", {{"deviceSerial", serial}});
  expect(
      textIn(objectIn(sessions.object, "nextRecommendedTool"), "name") == "quillmere.session.start",
      "the server should recommend starting a session");
  return serial;
}

struct Session {
  std::string id;
  /// Signature of the screen with which the session began.
  std::string firstSignature;
};

Session startSession(DemoClient& ai, const std::string& serial) {
  ai.step("Start a Phone Screen session");
  const Answer answer = ai.call("quillmere.session.start", {{"deviceSerial", serial}});
  return {textIn(objectIn(objectIn(answer.object, "action"), "session"), "sessionId"),
          textIn(objectIn(answer.object, "visibleState"), "stateSignature")};
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
  expect(!before.find("text", newItem), "nobody has added the item yet");

  ai.step("Tap the text field and type");
  const auto field = before.find("hint", "Add an item");
  expect(field.has_value(), "the screen should show a text field");
  const JsonObject bounds = objectIn(*field, "bounds");
  const auto middle = [&](std::string_view start, std::string_view length) {
    const auto from = bounds.findNumber(start);
    const auto size = bounds.findNumber(length);
    expect(from && size, "the text field should have bounds");
    return from->integer().value_or(0) + size->integer().value_or(0) / 2;
  };
  ai.call("quillmere.input.tap",
          {{"sessionId", sessionId}, {"x", middle("x", "width")}, {"y", middle("y", "height")}});
  ai.call("quillmere.input.text", {{"sessionId", sessionId}, {"text", newItem}});

  ai.step("Click Add with the old screen's signature: the app notices");
  ai.call("quillmere.ui.click_element", before.target(sessionId, "text", "Add"), true);

  ai.step("Read the screen again, and click Add");
  const UiState typed = readScreen(ai, sessionId);
  ai.call("quillmere.ui.click_element", typed.target(sessionId, "text", "Add"));

  ai.step("Scroll down and check the result");
  UiState shown = readScreen(ai, sessionId);
  JsonText scroll = shown.target(sessionId, "resourceId", "shopping.items");
  scroll.set("direction", "down");
  ai.call("quillmere.ui.scroll_element", scroll);
  shown = readScreen(ai, sessionId);
  expect(shown.find("text", newItem).has_value(), "the new item should be on the list");
}

void refuseBadArgument(DemoClient& ai, const std::string& sessionId) {
  ai.step("Send a wrong argument: the server refuses it, and the app never sees it");
  ai.callBadly("quillmere.input.swipe", {{"sessionId", sessionId},
                                         {"startX", 270},
                                         {"startY", 900},
                                         {"endX", 270},
                                         {"endY", 300},
                                         {"durationMs", 5}});
}

void cancelCall(DemoClient& ai, const std::string& serial) {
  ai.step("Cancel a slow call while others go on");
  const std::int64_t id = ai.beginCall("quillmere.wait", {{"durationMs", 10000}});
  // This one gets its response first, although it was sent later.
  ai.call("quillmere.sessions.list", {{"deviceSerial", serial}});
  ai.say("asks", "notifications/cancelled for the call that still waits, then ping");
  ai.notify("notifications/cancelled", {{"requestId", id}, {"reason", "the user changed plans"}});
  expect(ai.request("ping", JsonText::object()).object.contains("result"),
         "the ping should be answered");
  ai.say("gets", "a response to the ping, and none to the cancelled call");
}

void tellRobin(DemoClient& ai, const std::string& serial, const std::string& sessionId) {
  ai.step("Open the messages: the app needs the user's agreement first");
  ai.call("quillmere.app.launch",
          {{"deviceSerial", serial}, {"packageName", "com.example.messages"}});
  UiState screen = readScreen(ai, sessionId);
  JsonText click = screen.target(sessionId, "text", "Robin");
  const Answer refusal = ai.call("quillmere.ui.click_element", click, true);

  ai.step("The user agrees; try again with the user's words");
  click.set("userAcknowledgementText", textIn(refusal.object, "requiredUserAcknowledgementText"));
  ai.call("quillmere.ui.click_element", click);
  screen = readScreen(ai, sessionId);
  JsonText draft = screen.target(sessionId, "hint", "Write a message");
  draft.set("text", std::string(newItem) + " is on the list.");
  ai.call("quillmere.ui.set_text", draft);
  ai.call("quillmere.input.key", {{"sessionId", sessionId}, {"key", "ENTER"}});
  ai.call("quillmere.input.key", {{"sessionId", sessionId}, {"key", "back"}});
  screen = readScreen(ai, sessionId);
  expect(screen.find("text", std::string(newItem) + " is on the list.").has_value(),
         "the message should have been sent");
}

void stopControl(DemoClient& ai, const std::string& sessionId) {
  ai.step("Stop AI control: from now on every action is refused");
  ai.call("quillmere.control.stop", JsonText::object());
  ai.call("quillmere.input.key", {{"sessionId", sessionId}, {"key", "home"}}, true);
}

void keepScreenshot(DemoClient& ai, const std::string& sessionId, const std::string& path) {
  ai.step("Look at the final screen");
  const Answer answer =
      ai.call("quillmere.screen.observe", {{"sessionId", sessionId}, {"includeImage", true}});
  const auto png = bytesOfBase64(textIn(objectIn(answer.object, "image"), "base64"));
  expect(png && png->starts_with("\x89PNG"), "the response should hold a PNG");
  std::ofstream file(path, std::ios::binary);
  file << *png << std::flush;
  expect(static_cast<bool>(file), "the screenshot can't be written");
  ai.say("kept", path);
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
  expect(ai.finish(), "the server should end with status 0 and without more output");
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
    DemoClient ai(given[1], isColoured);
    play(ai, given[2]);
    print(STDOUT_FILENO, "\nPASSED: all " + std::to_string(ai.stepCount()) +
                             " steps of the demo worked as expected.");
    return 0;
  } catch (const std::exception& failure) {
    print(STDOUT_FILENO, std::string("\nFAILED: ") + failure.what() + ".");
    return 1;
  }
}
