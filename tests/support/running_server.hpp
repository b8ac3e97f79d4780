// The real program under a scripted client. For tests whose target defines QUILLMERE_SERVER.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <string_view>

#include "harness/desktop_app.hpp"
#include "harness/temporary_home.hpp"
#include "peers/server_process.hpp"
#include "support/json.hpp"

namespace quillmere {

/// What a program wrote, and its exit status.
struct ProgramOutcome {
  std::string output;
  int status = -1;
};

/// Runs a program without input until it ends.
inline ProgramOutcome runToEnd(const ServerProcess::Options& options) {
  ServerProcess process(options);
  process.closeInput();
  std::string output(process.receiveBytes());
  return {std::move(output), process.waitForExit()};
}

/// Makes an app called `identifier` in `home` that contains the server. Returns the server's path.
inline std::string serverInsideApp(const TemporaryHome& home, std::string_view identifier) {
  const std::filesystem::path contents = home.path() + "/Q.app/Contents";
  home.write((contents / "Info.plist").string(), infoPlist(identifier));
  std::filesystem::create_directories(contents / "MacOS");
  std::filesystem::copy_file(QUILLMERE_SERVER, contents / "MacOS/server");
  return contents / "MacOS/server";
}

/// What `RunningServer::nextShort` returns after the id for a successful call; and the response to
/// a ping with the id "ping".
inline const std::string succeeded = "Quillmere tool call succeeded.";
inline const std::string pong = R"({"jsonrpc":"2.0","id":"ping","result":{}})";

/// A running server in its own home, after the handshake: the server or another program as built,
/// or a copy of the server inside the app with this identifier.
struct RunningServer : testing::Test {
  TemporaryHome home;
  ServerProcess server;

  explicit RunningServer(std::string_view app = "", const char* program = QUILLMERE_SERVER)
      : server({.program = app.empty() ? program : serverInsideApp(home, app)}) {}

  void SetUp() override { shakeHands(); }
  void shakeHands() {
    request("hello", "initialize");
    EXPECT_TRUE(server.receive());
  }

  void request(const JsonText& id, std::string_view method,
               const JsonText& params = JsonText::object()) {
    server.sendMessage(
        JsonText{{"jsonrpc", "2.0"}, {"id", id}, {"method", method}, {"params", params}});
  }
  /// Calls a tool that needs no arguments.
  void call(const JsonText& id) { request(id, "tools/call", {{"name", "quillmere.devices.list"}}); }
  void cancel(const JsonText& id) {
    server.sendMessage(JsonText{{"jsonrpc", "2.0"},
                                {"method", "notifications/cancelled"},
                                {"params", JsonText{{"requestId", id}, {"reason", "enough"}}}});
  }

  /// The next message, as text.
  std::string next() { return std::string(server.receiveText().value_or("(nothing)")); }
  /// The next message's id, and the first line of its result's text or its error's code and text.
  std::string nextShort() {
    const auto message = server.receive();
    return message ? shortOf(message->object()) : "(nothing)";
  }
  static std::string shortOf(const JsonObject& message) {
    std::string text(message.find("id")->text());
    text += ": ";
    if (const auto error = message.findObject("error")) {
      text.append(error->findNumber("code")->text()).append(" ");
      return text.append(error->findString("message")->view());
    }
    const JsonValue content = *message.findObject("result")->findArray("content")->begin();
    const JsonString summary = content.asObject()->findString("text").value();
    return text.append(summary.view().substr(0, summary.view().find('\n')));
  }
};

}  // namespace quillmere
