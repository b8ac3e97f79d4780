// The real program under a scripted client. For tests whose target defines QUILLMERE_SERVER.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <utility>

#include "simulator/server_process.hpp"
#include "support/json.hpp"
#include "support/temporary_home.hpp"

namespace quillmere {

/// What a program wrote, and its exit status.
struct ProgramOutcome {
  std::string output;
  int status = -1;
};

/// Runs a program that is told nothing until it ends.
inline ProgramOutcome runToEnd(const ServerProcess::Options& options) {
  ServerProcess process(options);
  process.closeInput();
  ProgramOutcome outcome;
  InputStream output(process.outputDescriptor());
  while (output.read(4096, outcome.output)) {
  }
  outcome.status = process.waitForExit().value_or(-1);
  return outcome;
}

/// A running server that has been shaken hands with, in a home of its own.
struct RunningServer : testing::Test {
  TemporaryHome home;
  ServerProcess server{{.program = QUILLMERE_SERVER, .home = home.path()}};

  RunningServer() {
    request("hello", "initialize");
    EXPECT_TRUE(server.receive());
  }

  void request(const JsonValue& id, std::string_view method, JsonObject params = {}) {
    JsonObject message{{"jsonrpc", "2.0"}, {"id", id}, {"method", method}};
    message.set("params", std::move(params));
    server.send(message);
  }
  /// A call of a tool that needs no arguments.
  void call(const JsonValue& id) {
    request(id, "tools/call", {{"name", "quillmere.devices.list"}});
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
  /// The next message's id, and the first line of its result's text or its error's code and text.
  std::string nextShort() {
    const auto message = server.receive();
    return message ? shortOf(*message) : "(nothing)";
  }
  static std::string shortOf(const JsonObject& message) {
    const std::string id = compactJson(*message.find("id")) + ": ";
    if (const JsonObject* error = message.findObject("error")) {
      return id + error->findNumber("code")->text() + " " + *error->findString("message");
    }
    const JsonArray& content = *message.findObject("result")->findArray("content");
    const std::string& text = *content.front().asObject()->findString("text");
    return id + text.substr(0, text.find('\n'));
  }
};

}  // namespace quillmere
