// `--doctor` as a user runs it: the real program in all sorts of surroundings.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>

#include "platform/descriptor.hpp"
#include "platform/standard_streams.hpp"
#include "support/desktop_app.hpp"
#include "support/json.hpp"
#include "support/temporary_home.hpp"

namespace quillmere {
namespace {

namespace fs = std::filesystem;

struct Outcome {
  std::string output;
  int status = -1;
};

/// Runs `program` with `--doctor`, started under `name` in `folder`, with this process's home.
Outcome runDoctor(const std::string& program, std::string name, const std::string& folder = "/") {
  std::array<int, 2> ends{};
  EXPECT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
  const Descriptor readEnd(ends[0]);
  Descriptor writeEnd(ends[1]);
  std::string option = "--doctor";
  const std::array<char*, 3> arguments = {name.data(), option.data(), nullptr};
  const pid_t child = ::fork();
  if (child == 0) {
    const bool isReady =
        ::dup2(writeEnd.number(), STDOUT_FILENO) >= 0 && ::chdir(folder.c_str()) == 0;
    if (isReady) ::execv(program.c_str(), arguments.data());
    ::_exit(127);
  }
  writeEnd = Descriptor();

  Outcome outcome;
  InputStream output(readEnd.number());
  while (output.read(4096, outcome.output)) {
  }
  int status = 0;
  EXPECT_EQ(::waitpid(child, &status, 0), child);
  if (WIFEXITED(status)) outcome.status = WEXITSTATUS(status);
  return outcome;
}

std::string textUnder(const JsonObject& object, std::string_view key) {
  const std::string* text = object.findString(key);
  return text != nullptr ? *text : compactJson(*object.find(key));
}

void linkTo(const fs::path& target, const fs::path& link) {
  fs::create_directories(link.parent_path());
  fs::create_symlink(target, link);
}

void leavePlainFile(const fs::path& path) {
  fs::create_directories(path.parent_path());
  std::ofstream(path) << "no socket";
}

TEST(Doctor, TellsWhatIsInTheSocketsPlace) {
  struct Situation {
    std::string_view name;
    std::function<std::unique_ptr<DesktopApp>(const std::string& path)> arrange;
    bool exists, isSocket;
    /// An asterisk stands for the path; nothing if it can be reached.
    std::string_view error = {};
  };
  const Situation situations[] = {
      {"no app", [](const auto&) { return nullptr; }, false, false,
       "Quillmere MCP control socket was not found. Start Quillmere first."},
      {"a stale socket", [](const auto& path) { return leaveStaleSocket(path), nullptr; }, true,
       true, "Could not reach Quillmere MCP control socket: *: Connection refused"},
      {"a live socket", [](const auto& path) { return std::make_unique<DesktopApp>(path); }, true,
       true},
      {"a link", [](const auto& path) { return linkTo("/", path), nullptr; }, true, false,
       "Could not reach Quillmere MCP control socket: *: not a socket"},
      {"a plain file", [](const auto& path) { return leavePlainFile(path), nullptr; }, true, false,
       "Could not reach Quillmere MCP control socket: *: not a socket"},
  };
  for (const auto& [name, arrange, exists, isSocket, error] : situations) {
    SCOPED_TRACE(name);
    const TemporaryHome home;
    const auto app = arrange(home.releaseSocket());
    std::string errorText(error);
    if (const auto star = error.find('*'); star != error.npos) {
      errorText.replace(star, 1, home.releaseSocket());
    }
    const auto candidate = [](const std::string& path, bool isThere, bool isOne) {
      return JsonObject{{"path", path}, {"exists", isThere}, {"isSocket", isOne}};
    };
    const JsonObject report{
        {"bundledAppIdentifier", JsonValue()},
        {"preferredAppGroupIdentifier", JsonValue()},
        {"serverVersion", "0.3.0"},
        {"socketCandidates", JsonArray{candidate(home.debugSocket(), false, false),
                                       candidate(home.releaseSocket(), exists, isSocket),
                                       candidate(home.ungroupedSocket(), false, false)}},
        {"socketError", error.empty() ? JsonValue() : JsonValue(errorText)},
        {"socketReachable", error.empty()},
        {"supportedProtocolVersions",
         JsonArray{"2024-11-05", "2025-03-26", "2025-06-18", "2025-11-25"}}};
    const auto [output, status] = runDoctor(QUILLMERE_SERVER, QUILLMERE_SERVER);
    EXPECT_EQ(output, indentedJson(report) + "\n");
    EXPECT_EQ(status, 0);
    if (app) {
      EXPECT_EQ(app->accept().waitUntilClosed(), 0) << "the app is told nothing";
    }
  }
}

TEST(Doctor, SaysNothingThatWouldNotBeUtf8) {
  const TemporaryHome home;
  ::setenv("HOME", (home.path() + "/\xFF").c_str(), 1);
  const Outcome outcome = runDoctor(QUILLMERE_SERVER, QUILLMERE_SERVER);
  EXPECT_EQ(outcome.output, "");
  EXPECT_EQ(outcome.status, 1);
}

constexpr std::string_view release = "com.tallowbrook.wickfern";
constexpr std::string_view debug = "com.tallowbrook.wickfern.debug";

/// A copy of the program inside an app of its own, in a home of its own.
struct Bundle : testing::Test {
  TemporaryHome home;
  const fs::path contents = home.path() + "/Q.app/Contents";
  const fs::path server = contents / "MacOS/server";

  Bundle() {
    fs::create_directories(server.parent_path());
    fs::copy_file(QUILLMERE_SERVER, server);
  }

  /// Checks that the report names this bundle and its group and looks there first. No identifier
  /// stands for no bundle.
  void expectIdentifier(const Outcome& outcome, std::string_view identifier) const {
    ASSERT_EQ(outcome.status, 0);
    const JsonObject found = json(outcome.output);
    constexpr std::string_view none = "null";
    EXPECT_EQ(textUnder(found, "bundledAppIdentifier"), identifier.empty() ? none : identifier);
    EXPECT_EQ(textUnder(found, "preferredAppGroupIdentifier"),
              identifier == release || identifier == debug
                  ? "group." + std::string(identifier) + ".shared"
                  : none);
    std::vector paths = {home.debugSocket(), home.releaseSocket(), home.ungroupedSocket()};
    if (identifier == release) std::swap(paths[0], paths[1]);
    for (const JsonValue& candidate : *found.findArray("socketCandidates")) {
      EXPECT_EQ(*candidate.asObject()->findString("path"), paths.front());
      paths.erase(paths.begin());
    }
    EXPECT_TRUE(paths.empty());
  }
};

TEST_F(Bundle, OfEachKindIsRecognisedOrIgnored) {
  const std::string infoPath = contents / "Info.plist";
  for (const std::string_view app : {release, debug, std::string_view("com.example.other")}) {
    home.write(infoPath, infoPlist(app));
    expectIdentifier(runDoctor(server, server), app);
  }

  const std::string list = home.write("list", infoPlist(release));
  struct PlaceCase {
    std::string_view name;
    std::function<void()> arrange;
    std::string_view identifier = {};
  };
  const PlaceCase cases[] = {
      {"a link to a list", [&] { linkTo(list, infoPath); }, release},
      {"missing", [] {}},
      {"a directory", [&] { fs::create_directory(infoPath); }},
      {"a pipe", [&] { ::mkfifo(infoPath.c_str(), 0600); }},
      {"a link to a device", [&] { linkTo("/dev/zero", infoPath); }},
      {"too long",
       [&] { home.write(infoPath, infoPlist(release, "<!--" + times(131'072, "x") + "-->")); }},
  };
  for (const auto& [name, arrange, identifier] : cases) {
    SCOPED_TRACE(name);
    fs::remove_all(infoPath);
    arrange();
    expectIdentifier(runDoctor(server, server), identifier);
  }
  if (::geteuid() == 0) return;  // who may read everything
  home.write(infoPath, infoPlist(release));
  fs::permissions(infoPath, fs::perms::none);
  expectIdentifier(runDoctor(server, server), "");
}

TEST_F(Bundle, IsFoundUnderWhateverNameItsProgramWasStarted) {
  home.write((contents / "Info.plist").string(), infoPlist(release));
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
      // A bare name counts from the current folder, wherever the shell has found the program.
      {"server", home.path(), ""},
      {"", contents / "MacOS", release},
      {"", contents, ""},
      // What is linked to from inside a bundle is not inside.
      {home.path() + "/Other.app/Contents/MacOS/server", "/", ""},
      {home.path() + "/Other.app/Contents/MacOS/gone", "/", "com.example.other"},
      {times(5'000, "x"), contents / "MacOS", release},
  };
  for (const auto& [name, folder, identifier] : cases) {
    SCOPED_TRACE(name.substr(0, 100) + " in " + folder);
    expectIdentifier(runDoctor(server, name, folder), identifier);
  }
}

}  // namespace
}  // namespace quillmere
