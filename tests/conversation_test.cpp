// Whole conversations with the real programs, each in a file: what the client sends, what the
// desktop app gets and answers, what comes back. tests/conversations/README.md has the form.
#include <gtest/gtest.h>

#include <cctype>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <regex>

#include "control/control_frame.hpp"
#include "harness/desktop_app.hpp"
#include "support/running_server.hpp"

namespace quillmere {
namespace {

/// `text` with each random identifier replaced by the same word.
std::string masked(const std::optional<std::string>& text) {
  static const std::regex uuid("[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}");
  return text ? std::regex_replace(*text, uuid, "UUID") : "(nothing)";
}

/// Those who talk, in a home of their own.
struct Stage {
  TemporaryHome home;
  ServerProcess server;
  std::optional<DesktopApp> app;
  std::map<std::string, AppConnection> connections;

  explicit Stage(const char* program) : server({.program = program, .home = home.path()}) {
    server.send(R"({"jsonrpc":"2.0","id":"hello","method":"initialize"})"
                "\n");
    EXPECT_TRUE(server.receive());
  }

  /// Does what one line says. Returns false for a line of no known form, or when the peer is gone.
  bool play(const std::string& line) {
    static const std::regex form("(client|server|app (\\d) (\\w+))(?:: (.*))?");
    std::smatch parts;
    if (!std::regex_match(line, parts, form)) return false;
    const std::string text = parts[4];
    if (parts[1] == "client") return server.send(text + "\n");
    if (parts[1] == "server") {
      const auto message = server.receiveText();
      EXPECT_EQ(text, masked(message ? std::optional<std::string>(*message) : std::nullopt));
      return true;
    }
    if (parts[3] == "gets") {
      const AppConnection& connection =
          connections.insert_or_assign(parts[2], app.value().accept()).first->second;
      EXPECT_EQ(text, masked(connection.receiveText()));
      return true;
    }
    const AppConnection& connection = connections.at(parts[2]);
    if (parts[3] == "answers") return connection.send(controlFrame(text));
    // A JSON string, for bytes that no line could hold.
    if (parts[3] == "sends")
      return connection.send(json("{\"bytes\":" + text + "}").findString("bytes")->view());
    if (parts[3] == "leaves") return connections.erase(parts[2]) == 1;
    if (parts[3] != "lost") return false;
    EXPECT_EQ(0U, connection.waitUntilClosed()) << "more was sent";
    return true;
  }
};

class Conversation : public testing::TestWithParam<std::filesystem::path> {};

TEST_P(Conversation, GoesAsItIsWritten) {
  const bool isCompat = GetParam().filename().string().starts_with("compat");
  Stage stage(isCompat ? QUILLMERE_COMPAT : QUILLMERE_SERVER);
  std::ifstream lines(GetParam());
  int number = 0;
  for (std::string line; std::getline(lines, line);) {
    ++number;
    if (line.empty() || line.starts_with('#')) continue;
    SCOPED_TRACE(GetParam().filename().string() + ":" + std::to_string(number));
    if (line == "app starts") {
      stage.app.emplace(stage.home.releaseSocket());
    } else {
      try {
        ASSERT_TRUE(stage.play(line)) << line;
      } catch (const std::exception& failure) {
        // Here, where the trace still names the file and the line.
        FAIL() << line << "\n" << failure.what();
      }
    }
  }
  EXPECT_GT(number, 0);
  stage.server.closeInput();
  EXPECT_EQ(std::nullopt, stage.server.receiveText()) << "after the last line";
  EXPECT_EQ(0, stage.server.waitForExit());
}

std::vector<std::filesystem::path> conversations() {
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(QUILLMERE_CONVERSATIONS)) {
    if (entry.path().extension() == ".txt") files.push_back(entry.path());
  }
  return files;
}

INSTANTIATE_TEST_SUITE_P(Each, Conversation, testing::ValuesIn(conversations()),
                         [](const auto& file) { return file.param.stem().string(); });

}  // namespace
}  // namespace quillmere
