// Property lists, the file system, random identifiers, threads.
#include <gtest/gtest.h>
#include <pwd.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <barrier>
#include <filesystem>
#include <future>
#include <latch>
#include <regex>
#include <set>
#include <vector>

#include "platform/file_system.hpp"
#include "platform/property_list.hpp"
#include "platform/uuid.hpp"
#include "platform/worker_pool.hpp"
#include "simulator/unix_listener.hpp"
#include "support/json.hpp"
#include "support/temporary_home.hpp"

namespace quillmere {
namespace {

std::string xmlPropertyList(std::string_view content) {
  return R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">)" +
         std::string(content) + "</plist>\n";
}

/// {"CFBundleIdentifier": "com.tallowbrook.wickfern"} in the binary form.
std::string binaryPropertyList() {
  std::string list = "bplist00";
  list += "\xD1\x01\x02";  // a dictionary: key 1, value 2
  list +=
      "\x5F\x10\x12"
      "CFBundleIdentifier";  // a string of 18
  list +=
      "\x5F\x10\x18"
      "com.tallowbrook.wickfern";                // a string of 24
  list += "\x08\x0B\x20";                        // where the three objects stand
  list += std::string("\0\0\0\0\0\0\1\1", 8);    // an offset and a reference take a byte each
  list += std::string("\0\0\0\0\0\0\0\3", 8);    // three objects
  list += std::string("\0\0\0\0\0\0\0\0", 8);    // the first is the top
  list += std::string("\0\0\0\0\0\0\0\x3B", 8);  // the table of places
  return list;
}

TEST(PropertyList, GivesTheStringUnderAKeyOfTheTopDictionary) {
  const auto dictionary = [](std::string_view content) {
    return xmlPropertyList("<dict>" + std::string(content) + "</dict>");
  };
  struct ListCase {
    std::string_view name;
    std::string data;
    std::optional<std::string> value;
  };
  const ListCase cases[] = {
      {"XML", dictionary("<key>Other</key><true/><key>K</key><string>a.b</string>"), "a.b"},
      {"XML with an entity", dictionary("<key>K</key><string>a&amp;b</string>"), "a&b"},
      {"an empty string", dictionary("<key>K</key><string></string>"), ""},
      {"a number", dictionary("<key>K</key><integer>5</integer>"), std::nullopt},
      {"a dictionary", dictionary("<key>K</key><dict/>"), std::nullopt},
      {"no such key", dictionary("<key>k</key><string>a</string>"), std::nullopt},
      {"the key one level down",
       dictionary("<key>D</key><dict><key>K</key><string>a</string></dict>"), std::nullopt},
      {"an array at the top", xmlPropertyList("<array><string>K</string></array>"), std::nullopt},
      {"a string at the top", xmlPropertyList("<string>K</string>"), std::nullopt},
      {"nothing at the top", xmlPropertyList(""), std::nullopt},
      {"no data", "", std::nullopt},
      {"no property list", "K = a", std::nullopt},
      {"JSON", R"({"K":"a"})", std::nullopt},
      {"XML cut off", dictionary("<key>K</key><string>a.b</string>").substr(0, 200), std::nullopt},
      {"a binary header alone", "bplist00", std::nullopt},
      {"nested deep, within the limit", xmlPropertyList(times(10'000, "<array>")), std::nullopt},
      {"more than is read",
       dictionary("<key>K</key><string>a</string><key>Long</key><string>" +
                  times(maxPropertyListBytes, "x") + "</string>"),
       std::nullopt},
  };
  for (const auto& [name, data, value] : cases) {
    EXPECT_EQ(propertyListString(data, "K"), value) << name;
  }
}

TEST(PropertyList, BinaryFormIsReadAndNeverTrusted) {
  const std::string list = binaryPropertyList();
  EXPECT_EQ(propertyListString(list, "CFBundleIdentifier"), "com.tallowbrook.wickfern");
  for (std::size_t length = 0; length < list.size(); ++length) {
    EXPECT_EQ(propertyListString(list.substr(0, length), "CFBundleIdentifier"), std::nullopt)
        << "cut off at byte " << length;
  }
  for (std::size_t at = 0; at < list.size(); ++at) {
    std::string broken = list;
    broken[at] = static_cast<char>(~broken[at]);
    // Any answer will do; the sanitizers watch what is read on the way.
    static_cast<void>(propertyListString(broken, "CFBundleIdentifier"));
  }
}

TEST(FileSystem, HomeIsTheEnvironmentsIfAbsoluteAndElseThePasswordEntrys) {
  const TemporaryHome restoresHome;
  EXPECT_EQ(homeDirectory(), restoresHome.path());
  const std::string entry = ::getpwuid(::getuid())->pw_dir;
  for (const char* unusable : {"", "relative/home"}) {
    ::setenv("HOME", unusable, 1);
    EXPECT_EQ(homeDirectory(), entry) << unusable;
  }
  ::unsetenv("HOME");
  EXPECT_EQ(homeDirectory(), entry);
}

TEST(FileSystem, TellsWhatIsAtAPath) {
  const TemporaryHome home;
  const std::filesystem::path folder = home.path();
  home.write("file", "content");
  const UnixListener listener(folder / "socket");
  std::filesystem::create_symlink(listener.path(), folder / "link to socket");
  std::filesystem::create_symlink(folder / "gone", folder / "dangling link");
  ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0600), 0);

  struct PathCase {
    std::string_view path;
    bool exists;
    bool isSocket;
    std::optional<std::string> content;
  };
  const PathCase cases[] = {
      {"", true, false, std::nullopt},
      {"file", true, false, "content"},
      {"socket", true, true, std::nullopt},
      {"link to socket", true, false, std::nullopt},
      {"dangling link", false, false, std::nullopt},
      {"fifo", true, false, std::nullopt},
      {"nothing", false, false, std::nullopt},
      {"file/below", false, false, std::nullopt},
  };
  for (const auto& [path, exists, socket, content] : cases) {
    EXPECT_EQ(pathExists(folder / path), exists) << path;
    EXPECT_EQ(isSocket(folder / path), socket) << path;
    EXPECT_EQ(readFile(folder / path, 7), content) << path;
  }
  EXPECT_EQ(readFile(folder / "file", 6), std::nullopt) << "a file longer than asked for";
  EXPECT_EQ(withLinksResolved(folder / "link to socket"), folder / "socket");
  EXPECT_EQ(withLinksResolved(folder / "x" / ".." / "nothing"), folder / "nothing");
}

TEST(Uuid, HasTheFormOfVersion4AndIsNewEachTime) {
  const std::regex form("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
  std::set<std::string> seen;
  for (int i = 0; i < 1000; ++i) {
    const std::string uuid = randomUuid();
    EXPECT_TRUE(std::regex_match(uuid, form)) << uuid;
    EXPECT_TRUE(seen.insert(uuid).second) << uuid << " came twice";
  }
}

/// A pool of its own for each test; pools live until the process ends.
WorkerPool& newPool() {
  static std::vector<WorkerPool*>& pools = *new std::vector<WorkerPool*>();
  return *pools.emplace_back(new WorkerPool());
}

// What a task signals with is shared with it: the task may still be inside the signal when the test
// has gone on.

TEST(WorkerPool, NoTaskWaitsForAnother) {
  WorkerPool& pool = newPool();
  constexpr int tasks = 100;
  const auto meeting = std::make_shared<std::barrier<>>(tasks);
  const auto ended = std::make_shared<std::latch>(tasks);
  for (int i = 0; i < tasks; ++i) {
    // Each task goes on only when all have come: one that waited for another would stop them all.
    ASSERT_TRUE(pool.submit([meeting, ended] {
      meeting->arrive_and_wait();
      ended->count_down();
    }));
  }
  ended->wait();
}

TEST(WorkerPool, UsesItsThreadsAgain) {
  WorkerPool& pool = newPool();
  constexpr std::size_t tasks = 200;
  std::set<pid_t> threads;
  for (std::size_t i = 0; i < tasks; ++i) {
    const auto thread = std::make_shared<std::promise<pid_t>>();
    ASSERT_TRUE(pool.submit([thread] { thread->set_value(::gettid()); }));
    threads.insert(thread->get_future().get());
  }
  EXPECT_LT(threads.size(), tasks / 2);
}

TEST(WorkerPool, LetsGoOfATaskWhenItHasRun) {
  WorkerPool& pool = newPool();
  const auto released = std::make_shared<std::promise<void>>();
  std::shared_ptr<void> held(nullptr, [released](void*) { released->set_value(); });
  ASSERT_TRUE(pool.submit([held = std::move(held)] {}));
  released->get_future().wait();
}

}  // namespace
}  // namespace quillmere
