// `--doctor` as a user runs it: the real program in many surroundings.
#include "server/doctor.hpp"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <functional>
#include <memory>

#include "harness/desktop_app.hpp"
#include "platform/file_system.hpp"
#include "support/running_server.hpp"

#ifndef __APPLE__
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {
std::function<void()> afterConnect;
}
/// Replaces the system's function in this program, to act right after a connect.
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name): glibc's have underscores
extern "C" int connect(int socket, const sockaddr* address, socklen_t size) {
  const auto result = static_cast<int>(::syscall(SYS_connect, socket, address, size));
  if (afterConnect) afterConnect();
  return result;
}
#endif

namespace quillmere {
namespace {

namespace fs = std::filesystem;

/// Runs `program` with `--doctor`, started under `name` in `folder`.
ProgramOutcome runDoctor(const std::string& program, const std::string& name,
                         const std::string& folder = "/") {
  return runToEnd(
      {.program = "/bin/bash",
       .arguments = {"-c", R"(cd "$0" && exec -a "$1" "$2" --doctor)", folder, name, program}});
}

constexpr std::string_view release = "com.tallowbrook.wickfern";
constexpr std::string_view debug = "com.tallowbrook.wickfern.debug";
const std::string notFound = "Quillmere MCP control socket was not found. Start Quillmere first.";

/// The doctor's report inside the app `identifier`, or outside any; what it finds in the released
/// app's place; and how a call would fail.
std::string report(const TemporaryHome& home, std::string_view identifier = "", bool exists = false,
                   bool isSocket = false, const std::optional<std::string>& error = notFound) {
  const auto candidate = [](const std::string& path, bool isThere, bool isOne) {
    return JsonText{{"path", path}, {"exists", isThere}, {"isSocket", isOne}};
  };
  std::vector candidates{candidate(home.debugSocket(), false, false),
                         candidate(home.releaseSocket(), exists, isSocket),
                         candidate(home.ungroupedSocket(), false, false)};
  if (identifier == release) std::swap(candidates[0], candidates[1]);
  const auto textOrNull = [](bool isText, const std::string& text) {
    return isText ? JsonText(text) : JsonText();
  };
  const std::string app(identifier);
  const JsonText all{
      {"bundledAppIdentifier", textOrNull(!app.empty(), app)},
      {"preferredAppGroupIdentifier",
       textOrNull(app == release || app == debug, "group." + app + ".shared")},
      {"serverVersion", QUILLMERE_PROJECT_VERSION},
      {"socketCandidates", JsonText::arrayOf(candidates)},
      {"socketError", textOrNull(error.has_value(), error.value_or(""))},
      {"socketReachable", !error.has_value()},
      {"supportedProtocolVersions",
       JsonText::ofJson(R"(["2024-11-05","2025-03-26","2025-06-18","2025-11-25"])")}};
  return indentedJson(json(all.str()).asValue()) + "\n";
}

void linkTo(const fs::path& target, const fs::path& link) {
  fs::create_directories(link.parent_path());
  fs::create_symlink(target, link);
}

TEST(Doctor, ReportsWhatIsInTheSocketsPlace) {
  std::optional<DesktopApp> app;
  struct Situation {
    std::string_view name;
    std::function<void(const TemporaryHome& home, const std::string& path)> arrange;
    bool exists, isSocket;
    /// Why the app can't be reached, if there is something in its place.
    std::string_view failure = {};
  };
  const Situation situations[] = {
      {"no app", [](const auto&, const auto&) {}, false, false},
      {"a stale socket", [](const auto&, const auto& path) { leaveStaleSocket(path); }, true, true,
       "Connection refused"},
      {"a live socket", [&](const auto&, const auto& path) { app.emplace(path); }, true, true},
      {"a link", [](const auto&, const auto& path) { linkTo("/", path); }, true, false,
       "not a socket"},
      {"a plain file", [](const auto& home, const auto& path) { home.write(path, ""); }, true,
       false, "not a socket"},
  };
  for (const auto& [name, arrange, exists, isSocket, failure] : situations) {
    SCOPED_TRACE(name);
    const TemporaryHome home;
    arrange(home, home.releaseSocket());
    std::optional<std::string> error;
    if (!app) error = notFound;
    if (!failure.empty()) {
      error = "Could not reach Quillmere MCP control socket: " + home.releaseSocket() + ": " +
              std::string(failure);
    }
    const auto [output, status] = runDoctor(QUILLMERE_SERVER, QUILLMERE_SERVER);
    EXPECT_EQ(output, report(home, "", exists, isSocket, error));
    EXPECT_EQ(status, 0);
    if (app) {
      EXPECT_EQ(app->accept().waitUntilClosed(), 0) << "the doctor must send nothing to the app";
      app.reset();
    }
  }
}

#ifndef __APPLE__
TEST(Doctor, ListsTheCandidatesBeforeItTriesThem) {
  const TemporaryHome home;
  const DesktopApp app(home.releaseSocket());
  afterConnect = [&] { fs::remove(home.releaseSocket()); };
  const std::string payload = doctorPayload().str();
  afterConnect = {};
  EXPECT_TRUE(*json(payload).findBoolean("socketReachable"));
  EXPECT_NE(payload.find("\"exists\":true"), std::string::npos) << payload;
}

// A path on macOS is always UTF-8.
TEST(Doctor, SaysNothingThatWouldNotBeUtf8) {
  const TemporaryHome home;
  ::setenv("HOME", (home.path() + "/\xFF").c_str(), 1);
  const ProgramOutcome outcome = runDoctor(QUILLMERE_SERVER, QUILLMERE_SERVER);
  EXPECT_EQ(outcome.output, "");
  EXPECT_EQ(outcome.status, 1);
}
#endif

/// A copy of the program inside its own app, in its own home.
struct Bundle : testing::Test {
  TemporaryHome home;
  const fs::path server = serverInsideApp(home, release);
  const fs::path contents = server.parent_path().parent_path();
  const std::string infoPath = contents / "Info.plist";
};

TEST_F(Bundle, NamesTheGroupToLookInFirst) {
  for (const std::string_view app : {release, debug, std::string_view("com.example.other")}) {
    home.write(infoPath, infoPlist(app));
    EXPECT_EQ(runDoctor(server, server).output, report(home, app));
  }
}

TEST_F(Bundle, IsFoundUnderAnyNameOfItsProgram) {
  home.write("Other.app/Contents/Info.plist", infoPlist("com.example.other"));
  linkTo(server, home.path() + "/link");
  linkTo(contents / "MacOS", home.path() + "/folder");
  linkTo(QUILLMERE_SERVER, home.path() + "/Other.app/Contents/MacOS/server");

  struct NameCase {
    std::string name, folder;
    std::string_view identifier;
  };
  const NameCase cases[] = {
      {server, "/", release},
      {"MacOS/server", contents, release},
      {"./server", contents / "MacOS", release},
      {"../../../link", contents / "MacOS", release},
      {home.path() + "/link", "/", release},
      {"folder/server", home.path(), release},
      {"server", home.path() + "/folder", release},
      // A bare name is resolved against the current folder, wherever the shell found the program.
      {"server", home.path(), ""},
      {"", contents / "MacOS", release},
      {"", contents, ""},
      // A program that is only linked from inside a bundle is not inside.
      {home.path() + "/Other.app/Contents/MacOS/server", "/", ""},
      {home.path() + "/Other.app/Contents/MacOS/gone", "/", "com.example.other"},
      {times(5'000, "x"), contents / "MacOS", release},
  };
  for (const auto& [name, folder, identifier] : cases) {
    SCOPED_TRACE(name.substr(0, 100) + " in " + folder);
    EXPECT_EQ(runDoctor(server, name, folder).output, report(home, identifier));
  }
}

}  // namespace
}  // namespace quillmere
