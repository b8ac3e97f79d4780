// Whole conversations with the real programs, each in a file: what the client sends, what the
// desktop app gets and answers, what comes back. tests/conversations/README.md describes the form.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <optional>
#include <regex>
#include <set>
#include <stdexcept>

#include "control/control_frame.hpp"
#include "harness/desktop_app.hpp"
#include "support/running_server.hpp"

namespace quillmere {
namespace {

namespace fs = std::filesystem;

/// The bytes that a JSON string stands for, one for each of its characters.
std::string bytesIn(const std::string& string) {
  const JsonString characters = *json("{\"bytes\":" + string + "}").findString("bytes");
  std::string bytes;
  for (auto at = characters.view().begin(); at != characters.view().end(); ++at) {
    const auto lead = static_cast<unsigned char>(*at);
    bytes += static_cast<char>(lead < 0x80 ? lead : lead << 6 | (*++at & 0x3F));
  }
  return bytes;
}

struct Conversation : RunningServer, testing::WithParamInterface<fs::path> {
  std::optional<DesktopApp> app;
  /// The app's connections by their numbers.
  std::map<std::string, AppConnection> connections;
  std::set<std::string> uuids;

  Conversation()
      : RunningServer("", GetParam().filename().string().starts_with("compat") ? QUILLMERE_COMPAT
                                                                               : QUILLMERE_SERVER) {
  }

  /// Not every conversation begins with a handshake.
  void SetUp() override {}

  /// Expects that `line`, which the server sends or the app gets, is `text`, where UUID stands for
  /// a new random identifier, VERSION for ours, and ... at the end for anything.
  void expectLine(const std::string& text, std::string line) {
    const std::string expected =
        std::regex_replace(text, std::regex("VERSION"), QUILLMERE_PROJECT_VERSION);
    static const std::regex uuid("[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}");
    for (std::smatch match; std::regex_search(line, match, uuid);) {
      EXPECT_TRUE(uuids.insert(match.str()).second) << "not random";
      line.replace(static_cast<std::size_t>(match.position()), match.str().size(), "UUID");
    }
    if (expected.ends_with("...")) line = line.substr(0, expected.size() - 3) + "...";
    EXPECT_EQ(expected, line);
  }
  void expectResponse(const std::string& rest) {
    expectLine(R"({"jsonrpc":"2.0","id":1,)" + rest + (rest.ends_with("...") ? "" : "}"), next());
  }

  /// Does what one line says.
  void play(const std::string& line) {
    static const std::regex form("(\\w+)(?: (\\d))?([ a-z]*)(?:: ((\\S*) ?(.*)))?");
    std::smatch parts;
    if (!std::regex_match(line, parts, form)) throw std::invalid_argument("no such line");
    const std::string text = parts[4];
    const std::string word = parts[5];
    const std::string rest = parts[6];
    const auto connection = [&]() -> const AppConnection& { return connections.at(parts[2]); };
    const auto send = [&](const std::string& bytes) { EXPECT_TRUE(server.send(bytes)); };
    const std::map<std::string, std::function<void()>> actions = {
        {"handshake", [&] { shakeHands(); }},
        {"request",
         [&] {
           send(R"({"jsonrpc":"2.0","id":1,"method":")" + word + '"' +
                (rest.empty() ? "" : ",\"params\":" + rest) + "}\n");
         }},
        {"cancel",
         [&] {
           send(R"({"jsonrpc":"2.0","method":"notifications/cancelled","params":{"requestId":)" +
                text + "}}\n");
         }},
        {"client", [&] { send(text + "\n"); }},
        {"client sends", [&] { send(bytesIn(text)); }},
        {"client is done", [&] { server.closeInput(); }},
        {"client stops reading", [&] { server.closeOutput(); }},
        {"result", [&] { expectResponse("\"result\":" + text); }},
        {"error",
         [&] { expectResponse(R"("error":{"code":)" + word + R"(,"message":")" + rest + "\"}"); }},
        {"server", [&] { expectLine(text, next()); }},
        {"server sends",
         [&] { EXPECT_EQ(bytesIn(text), server.receiveBytes(bytesIn(text).size())); }},
        {"server ends",
         [&] {
           const bool isRead = server.outputDescriptor() >= 0;
           EXPECT_EQ("(nothing)", isRead ? next() : "(nothing)");
           EXPECT_EQ(0, server.waitForExit());
         }},
        {"app starts", [&] { app.emplace(home.releaseSocket()); }},
        {"app gets",
         [&] {
           connections.insert_or_assign(parts[2], app.value().accept());
           expectLine(text, connection().receiveText().value_or("(nothing)"));
         }},
        {"app answers", [&] { EXPECT_TRUE(connection().send(controlFrame(text))); }},
        {"app sends", [&] { EXPECT_TRUE(connection().send(bytesIn(text))); }},
        {"app leaves", [&] { connections.erase(parts[2]); }},
        {"app lost", [&] { EXPECT_EQ(0U, connection().waitUntilClosed()) << "more was sent"; }},
    };
    actions.at(parts.str(1) + parts.str(3))();
  }
};

TEST_P(Conversation, GoesAsItIsWritten) {
  std::ifstream file(GetParam());
  std::vector<std::string> lines{"# of the file"};
  while (std::getline(file, lines.emplace_back())) {
  }
  ASSERT_LT(2U, lines.size());
  lines.insert(lines.end(), {"client is done", "server ends"});
  for (std::size_t number = 1; number < lines.size(); ++number) {
    if (lines[number].empty() || lines[number].starts_with('#')) continue;
    SCOPED_TRACE(GetParam().filename().string() + ":" + std::to_string(number) + ": " +
                 lines[number]);
    try {
      play(lines[number]);
    } catch (const std::exception& failure) {
      // Here, because the trace still names the file and the line.
      FAIL() << failure.what();
    }
  }
}

std::vector<fs::path> conversations() {
  std::vector<fs::path> files;
  for (const auto& entry : fs::directory_iterator(QUILLMERE_CONVERSATIONS)) {
    if (entry.path().extension() == ".txt") files.push_back(entry.path());
  }
  return files;
}

INSTANTIATE_TEST_SUITE_P(Each, Conversation, testing::ValuesIn(conversations()),
                         [](const auto& file) { return file.param.stem().string(); });

}  // namespace
}  // namespace quillmere
