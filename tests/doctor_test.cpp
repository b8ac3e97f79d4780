// `--doctor` as a user runs it: the real program in all sorts of surroundings.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <functional>
#include <memory>

#include "platform/descriptor.hpp"
#include "platform/standard_streams.hpp"
#include "simulator/unix_listener.hpp"
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
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, writeEnd.number(), STDOUT_FILENO);
  posix_spawn_file_actions_addchdir_np(&actions, folder.c_str());
  std::string option = "--doctor";
  const std::array<char*, 3> arguments = {name.data(), option.data(), nullptr};
  pid_t child = -1;
  EXPECT_EQ(::posix_spawn(&child, program.c_str(), &actions, nullptr, arguments.data(), environ), 0)
      << program;
  posix_spawn_file_actions_destroy(&actions);
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

void leaveStaleSocket(const std::string& path) {
  const UnixListener listener(path + "~");
  fs::rename(path + "~", path);
}

void linkTo(const fs::path& target, const fs::path& link) {
  fs::create_directories(link.parent_path());
  fs::create_symlink(target, link);
}

TEST(Doctor, TellsWhatIsInTheSocketsPlace) {
  const auto noApp = [](const TemporaryHome&) { return nullptr; };
  struct Situation {
    std::string_view name;
    std::function<std::unique_ptr<DesktopApp>(const TemporaryHome&)> arrange;
    std::string_view exists, isSocket, reachable;
    /// An asterisk stands for the path.
    std::string error;
  };
  const std::string unreachable = "\"Could not reach Quillmere MCP control socket: *: ";
  const Situation situations[] = {
      {"no app", noApp, "false", "false", "false",
       "\"Quillmere MCP control socket was not found. Start Quillmere first.\""},
      {"a stale socket",
       [](const auto& home) { return leaveStaleSocket(home.releaseSocket()), nullptr; }, "true",
       "true", "false", unreachable + "Connection refused\""},
      {"a live socket",
       [](const auto& home) { return std::make_unique<DesktopApp>(home.releaseSocket()); }, "true",
       "true", "true", "null"},
      {"a link to a live socket",
       [](const auto& home) {
         linkTo(home.path() + "/live", home.releaseSocket());
         return std::make_unique<DesktopApp>(home.path() + "/live");
       },
       "true", "false", "false", unreachable + "not a socket\""},
      {"a plain file",
       [](const auto& home) { return home.write(home.releaseSocket(), ""), nullptr; }, "true",
       "false", "false", unreachable + "not a socket\""},
  };
  for (const auto& [name, arrange, exists, isSocket, reachable, error] : situations) {
    SCOPED_TRACE(name);
    const TemporaryHome home;
    const auto app = arrange(home);
    const auto candidate = [](std::string_view there, std::string_view socket,
                              const std::string& path) {
      return "    {\n      \"exists\": " + std::string(there) +
             ",\n      \"isSocket\": " + std::string(socket) + ",\n      \"path\": \"" + path +
             "\"\n    }";
    };
    std::string errorText = error;
    if (const auto star = error.find('*'); star != std::string::npos) {
      errorText.replace(star, 1, home.releaseSocket());
    }
    const Outcome outcome = runDoctor(QUILLMERE_SERVER, QUILLMERE_SERVER);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, R"({
  "bundledAppIdentifier": null,
  "preferredAppGroupIdentifier": null,
  "serverVersion": "0.3.0",
  "socketCandidates": [
)" + candidate("false", "false", home.debugSocket()) +
                                  ",\n" + candidate(exists, isSocket, home.releaseSocket()) +
                                  ",\n" + candidate("false", "false", home.ungroupedSocket()) + R"(
  ],
  "socketError": )" + errorText + R"(,
  "socketReachable": )" + std::string(reachable) +
                                  R"(,
  "supportedProtocolVersions": [
    "2024-11-05",
    "2025-03-26",
    "2025-06-18",
    "2025-11-25"
  ]
}
)");
    if (reachable == "true") {
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
    const bool isRelease = identifier == "com.tallowbrook.wickfern";
    const bool isDebug = identifier == "com.tallowbrook.wickfern.debug";
    EXPECT_EQ(textUnder(found, "preferredAppGroupIdentifier"),
              isRelease || isDebug ? "group." + std::string(identifier) + ".shared" : none);
    std::vector paths = {home.debugSocket(), home.releaseSocket(), home.ungroupedSocket()};
    if (isRelease) std::swap(paths[0], paths[1]);
    for (const JsonValue& candidate : *found.findArray("socketCandidates")) {
      EXPECT_EQ(*candidate.asObject()->findString("path"), paths.front());
      paths.erase(paths.begin());
    }
    EXPECT_TRUE(paths.empty());
  }
};

std::string xmlList(std::string_view content) {
  return R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0">)" + std::string(content) +
         "</plist>";
}

std::string xmlBundle(std::string_view identifier, std::string_view more = "") {
  return xmlList("<dict>" + std::string(more) + "<key>CFBundleIdentifier</key><string>" +
                 std::string(identifier) + "</string></dict>");
}

/// Objects that refer to each other by one byte.
std::string binaryList(const std::vector<std::string>& objects) {
  std::string list = "bplist00";
  std::string places;
  for (const std::string& object : objects) {
    places += {static_cast<char>(list.size() >> 8U), static_cast<char>(list.size())};
    list += object;
  }
  const std::size_t table = list.size();
  list += places + std::string("\0\0\0\0\0\0\2\1", 8);
  for (const std::size_t number : {objects.size(), std::size_t{0}, table}) {
    list += std::string(6, '\0');
    list += {static_cast<char>(number >> 8U), static_cast<char>(number)};
  }
  return list;
}

const std::string identifierKey =
    "\x5F\x10\x12"
    "CFBundleIdentifier";
const std::string releaseText =
    "\x5F\x10\x18"
    "com.tallowbrook.wickfern";

/// A dictionary whose other member is an array of twice the next array, and so on: 2^60 elements.
std::string unfoldingList() {
  std::vector<std::string> objects = {"\xD2\1\3\2\4", identifierKey, releaseText,
                                      "\x51"
                                      "k"};
  for (int i = 0; i < 60; ++i) {
    const char next = static_cast<char>(objects.size() + 1);
    objects.push_back({'\xA2', next, next});
  }
  objects.push_back("\x08");
  return binaryList(objects);
}

TEST_F(Bundle, OfEachKindIsRecognisedOrIgnored) {
  using Place = std::function<void(const fs::path&)>;
  const auto file = [&](std::string content) -> Place {
    return [this, content = std::move(content)](const fs::path& path) {
      home.write(path.string(), content);
    };
  };
  constexpr std::string_view release = "com.tallowbrook.wickfern";
  constexpr std::string_view debug = "com.tallowbrook.wickfern.debug";
  const std::string binary = binaryList({"\xD1\1\2", identifierKey, releaseText});
  std::string wideText = "\x6F\x10\x1E";
  for (const char c : debug) wideText += {'\0', c};

  struct BundleCase {
    std::string_view name;
    Place infoPlist;
    std::string_view identifier = {};
  };
  const BundleCase cases[] = {
      {"the released app", file(xmlBundle(release)), release},
      {"the debug build", file(xmlBundle(debug)), debug},
      {"another app", file(xmlBundle("com.example.other")), "com.example.other"},
      {"binary", file(binary), release},
      {"binary, of 16-bit characters", file(binaryList({"\xD1\1\2", identifierKey, wideText})),
       debug},
      {"binary, endless when unfolded", file(unfoldingList()), release},
      {"a link to a list",
       [&](const auto& path) { linkTo(home.write("list", xmlBundle(release)), path); }, release},
      {"among hundreds of keys", file(xmlBundle(release, times(500, "<key>k</key><true/>"))),
       release},
      {"an array", file(xmlList("<array><string>CFBundleIdentifier</string></array>"))},
      {"a number for a name",
       file(xmlList("<dict><key>CFBundleIdentifier</key><real>5</real></dict>"))},
      {"binary, a number for a name", file(binaryList({"\xD1\1\2", identifierKey, "\x10\5"}))},
      {"a name that is no UTF-8", file(xmlBundle("com.\xFF"))},
      {"binary, half a surrogate pair",
       file(binaryList({"\xD1\1\2", identifierKey, "\x61\xD8\x01"}))},
      {"cut off", file(xmlBundle(release).substr(0, 120))},
      {"binary, cut off", file(binary.substr(0, binary.size() - 1))},
      {"binary, a header alone", file("bplist00")},
      {"empty", file("")},
      {"missing", [](const auto&) {}},
      {"a directory", [](const auto& path) { fs::create_directory(path); }},
      {"a pipe", [](const auto& path) { ::mkfifo(path.c_str(), 0600); }},
      {"a link to a device", [](const auto& path) { linkTo("/dev/zero", path); }},
      {"too long", file(xmlBundle(release, "<!--" + times(131'072, "x") + "-->"))},
      {"nested deep", file(xmlBundle(release, "<key>k</key>" + times(10'000, "<array>") +
                                                  times(10'000, "</array>")))},
      {"nested deep and never closed", file(times(10'000, "<dict><key>k"))},
  };
  for (const auto& [name, infoPlist, identifier] : cases) {
    SCOPED_TRACE(name);
    fs::remove_all(contents / "Info.plist");
    infoPlist(contents / "Info.plist");
    expectIdentifier(runDoctor(server, server), identifier);
  }
  if (::geteuid() == 0) return;  // who may read everything
  home.write((contents / "Info.plist").string(), xmlBundle(release));
  fs::permissions(contents / "Info.plist", fs::perms::none);
  expectIdentifier(runDoctor(server, server), "");
}

TEST_F(Bundle, IsFoundUnderWhateverNameItsProgramWasStarted) {
  constexpr std::string_view release = "com.tallowbrook.wickfern";
  home.write((contents / "Info.plist").string(), xmlBundle(release));
  home.write("Other.app/Contents/Info.plist", xmlBundle("com.example.other"));
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
