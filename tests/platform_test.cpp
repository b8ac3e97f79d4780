// Property lists, the file system, random identifiers, threads.
#include <gtest/gtest.h>
#include <pwd.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#ifdef __GLIBC__
#include <malloc.h>
#endif

#include <atomic>
#include <filesystem>
#include <future>
#include <regex>
#include <set>
#include <system_error>
#include <thread>
#include <vector>

#include "harness/holdings.hpp"
#include "harness/temporary_home.hpp"
#include "peers/patience.hpp"
#include "peers/unix_listener.hpp"
#include "platform/buffer.hpp"
#include "platform/file_system.hpp"
#include "platform/memory.hpp"
#include "platform/property_list.hpp"
#include "platform/uuid.hpp"
#include "platform/worker_pool.hpp"
#include "support/json.hpp"

namespace quillmere {
namespace {

std::string xml(std::string_view content) {
  return R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">)" +
         std::string(content) + "</plist>\n";
}

/// ASCII text as UTF-16 after a byte order mark, the high byte of each unit first or last.
std::string utf16(std::string_view text, bool isHighFirst) {
  std::string units = isHighFirst ? "\xFE\xFF" : "\xFF\xFE";
  for (const char c : text) units += isHighFirst ? std::string{'\0', c} : std::string{c, '\0'};
  return units;
}

std::string dictionary(std::string_view content) {
  return xml("<dict>" + std::string(content) + "</dict>");
}

/// The binary form. Objects refer to each other by one byte; the first is the top.
std::string binary(const std::vector<std::string>& objects) {
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

/// A dictionary with one member: the key K and `value`.
std::string binaryMember(const std::string& value) {
  return binary({"\xD1\1\2", "\x51K", value});
}

/// A dictionary with an array that holds the next array twice, and so on: 2^60 elements.
std::string unfoldingList() {
  std::vector<std::string> objects = {"\xD2\1\3\2\4", "\x51K",
                                      "\x53"
                                      "a.b",
                                      "\x51k"};
  for (int i = 0; i < 60; ++i) {
    const char next = static_cast<char>(objects.size() + 1);
    objects.push_back({'\xA2', next, next});
  }
  objects.push_back("\x08");
  return binary(objects);
}

/// A string whose length needs an object of its own.
const std::string longText =
    "\x5F\x10\x12"
    "CFBundleIdentifier";

TEST(PropertyList, GivesTheStringUnderAKeyOfTheTopDictionary) {
  using std::string_literals::operator""s;
  struct ListCase {
    std::string_view name;
    std::string data;
    std::optional<std::string> value = std::nullopt;
  };
  const std::string found = "<key>K</key><string>a.b</string>";
  const ListCase cases[] = {
      {"XML", dictionary("<key>Other</key><true/>" + found), "a.b"},
      {"XML without a header", "<plist><dict>" + found + "</dict></plist>", "a.b"},
      {"white space before it", " \t\r\n" + dictionary(found), "a.b"},
      {"UTF-8 with a mark", "\xEF\xBB\xBF" + dictionary(found), "a.b"},
      {"big-endian UTF-16 that claims to be UTF-8", utf16(dictionary(found), true), "a.b"},
      {"little-endian UTF-16", utf16("<plist><dict>" + found + "</dict></plist>", false), "a.b"},
      {"UTF-16, with white space", utf16("\n " + dictionary(found), false), "a.b"},
      {"pieces of all kinds",
       dictionary("<key><![CDATA[K]]></key><string>a&amp;<!-- x -->&#98;<![CDATA[<c]]>为</string>"),
       "a&b<c为"},
      {"an empty string", dictionary("<key>K</key><string/>"), ""},
      {"the last of a repeated key", dictionary("<key>K</key><array/>" + found), "a.b"},
      {"up to the limit",
       dictionary(times(maxPropertyListBytes / 19 - 20, "<key>k</key><true/>") + found), "a.b"},
      {"deeply nested",
       dictionary("<key>k</key>" + times(250'000, "<array>") + times(250'000, "</array>") + found),
       "a.b"},
      {"binary", binaryMember(longText), "CFBundleIdentifier"},
      {"binary, of 16-bit characters", binaryMember("\x63\0a\x4E\x3A\0b"s), "a为b"},
      {"binary, enormous when unfolded", unfoldingList(), "a.b"},
      {"a number", dictionary("<key>K</key><integer>5</integer>")},
      {"a number that comes later", dictionary(found + "<key>K</key><integer>5</integer>")},
      {"no such key", dictionary("<key>k</key><string>a</string>")},
      {"a key without a value", dictionary("<key>K</key>")},
      {"a key without a value at the end", dictionary(found + "<key>k</key>")},
      {"a key in place of a value", dictionary("<key>k</key>" + found + "<true/>")},
      {"a value without a key", dictionary("<true/>" + found)},
      {"an element in the string", dictionary("<key>K</key><string>a.b<true/></string>")},
      {"the key one level down", dictionary("<key>D</key><dict>" + found + "</dict>")},
      {"an array at the top", xml("<array><string>K</string></array>")},
      {"nothing at the top", xml("")},
      {"two at the top", xml("<dict>" + found + "</dict><dict/>")},
      {"a list in a list", xml("<plist><dict>" + found + "</dict></plist>")},
      {"not a list", "<html><dict>" + found + "</dict></html>"},
      {"bytes that are not UTF-8", dictionary("<key>K</key><string>\xFF</string>")},
      {"a NUL", dictionary("<key>K</key><string>a.b\0</string>"s)},
      {"a NUL as a character reference", dictionary("<key>K</key><string>a.b&#0;</string>")},
      {"an entity declared elsewhere", dictionary("<key>K</key><string>a.b&x;</string>")},
      {"its own entity, even unused",
       "<!DOCTYPE plist [<!ENTITY x \"y\">]><plist><dict>" + found + "</dict></plist>"},
      {"its own attribute",
       "<!DOCTYPE plist [<!ATTLIST dict x CDATA \"y\">]><plist><dict>" + found + "</dict></plist>"},
      {"binary, a number", binaryMember("\x10\5")},
      {"binary, half a surrogate pair", binaryMember("\x61\xD8\x01")},
      {"binary, only a header", "bplist00"},
      {"no data", ""},
      {"JSON", R"({"K":"a"})"},
      {"truncated XML", dictionary(found).substr(0, 200)},
      {"followed by text that is not XML", dictionary(found) + "<"},
      {"past the limit", dictionary(found + "<!--" + times(maxPropertyListBytes, "x") + "-->")},
  };
  for (const auto& [name, data, value] : cases) {
    EXPECT_EQ(propertyListString(data, "K"), value) << name;
  }
}

TEST(PropertyList, TruncatedBinaryFormGivesNothing) {
  const std::string list = binaryMember(longText);
  for (std::size_t length = 0; length < list.size(); ++length) {
    EXPECT_EQ(propertyListString(list.substr(0, length), "K"), std::nullopt)
        << "cut off at byte " << length;
  }
}

#ifndef __APPLE__
TEST(FileSystem, HomeComesFromTheEnvironmentIfAbsoluteElseFromThePasswordEntry) {
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
#endif

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
    PathKind kind;
    std::optional<std::string> content = std::nullopt;
  };
  const PathCase cases[] = {
      {"file", PathKind::somethingElse, "content"},
      {"socket", PathKind::socket},
      {"link to socket", PathKind::somethingElse},
      {"dangling link", PathKind::nothing},
      {"fifo", PathKind::somethingElse},
      {"nothing", PathKind::nothing},
      {"file/below", PathKind::nothing},
  };
  for (const auto& [path, kind, content] : cases) {
    EXPECT_EQ(kindOfPath(folder / path), kind) << path;
    EXPECT_EQ(readFile(folder / path, 7), content) << path;
  }
  EXPECT_EQ(readFile(folder / "file", 6), std::nullopt) << "a file longer than asked for";
  EXPECT_EQ(withLinksResolved(folder / "link to socket"), folder / "socket");
  EXPECT_EQ(withLinksResolved(folder / "x" / ".." / "nothing"), folder / "nothing");
}

TEST(FileSystem, NothingCountsAsAbsentWithoutADescriptor) {
  const TemporaryHome home;
  const std::string file = home.write("file", "content");
  ::unsetenv("HOME");
  rlimit before{};
  ASSERT_EQ(0, ::getrlimit(RLIMIT_NOFILE, &before));
  const rlimit none{.rlim_cur = 0, .rlim_max = before.rlim_max};
  ASSERT_EQ(0, ::setrlimit(RLIMIT_NOFILE, &none));
  EXPECT_THROW(static_cast<void>(readFile(file, 7)), std::system_error);
#ifndef __APPLE__
  EXPECT_THROW(static_cast<void>(homeDirectory()), std::system_error) << "from the password entry";
#endif
  ::setrlimit(RLIMIT_NOFILE, &before);
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

TEST(WorkerPool, RunsAllTasksAtOnceKeepsFewIdleThreadsAndReleasesTasks) {
  // Lives until the process ends, since its threads may.
  static WorkerPool& pool = *new WorkerPool();
  const auto runsAtOnce = [](std::size_t count) {
    const auto missing = std::make_shared<std::atomic<std::size_t>>(count);
    const auto last = std::make_shared<std::promise<void>>();
    const std::shared_future<void> allRun = last->get_future().share();
    for (std::size_t i = 0; i < count; ++i) {
      EXPECT_TRUE(pool.submit([missing, last, allRun] {
        if (--*missing == 0) last->set_value();
        allRun.wait();
      }));
    }
    return allRun.wait_for(patience()) == std::future_status::ready;
  };
  constexpr std::size_t burst = 200;
  ASSERT_TRUE(runsAtOnce(burst));
  std::set<std::thread::id> threads;
  for (std::size_t i = 0; i < 10 * burst; ++i) {
    // Shared with the task, which may still be inside `set_value` when the test goes on.
    const auto thread = std::make_shared<std::promise<std::thread::id>>();
    ASSERT_TRUE(pool.submit([thread] { thread->set_value(std::this_thread::get_id()); }));
    auto number = thread->get_future();
    ASSERT_EQ(std::future_status::ready, number.wait_for(patience())) << "the task did not run";
    // The first half gives the burst's threads enough time to fall asleep or end.
    if (i >= 5 * burst) threads.insert(number.get());
  }
  EXPECT_LT(threads.size(), burst / 4) << "idle threads take turns";

  const auto released = std::make_shared<std::promise<void>>();
  std::shared_ptr<void> held(nullptr, [released](void*) { released->set_value(); });
  ASSERT_TRUE(pool.submit([held = std::move(held)] {}));
  EXPECT_EQ(std::future_status::ready, released->get_future().wait_for(patience()))
      << "the task was not released";

  ASSERT_TRUE(runsAtOnce(burst)) << "with fewer idle threads than tasks";
// ThreadSanitizer starts a thread of its own.
#if !defined(__APPLE__) && !defined(__SANITIZE_THREAD__)
  waitUntil("idle threads end", [] { return holdingsOf(::getpid()).threads == 1; });
  EXPECT_TRUE(runsAtOnce(1)) << "after all idle threads have ended";
#endif
}

TEST(Memory, ABlockGrowsInFewStepsAndHasAsManyBytesAsItSays) {
  MemoryBlock block;
  int steps = 0;
  while (block.bytes < 20'000'000) {
    growBlock(block, block.bytes + 1);
    ++steps;
#ifdef __GLIBC__
    ASSERT_LE(block.bytes, malloc_usable_size(block.start)) << "after " << steps << " steps";
#endif
  }
  releaseBlock(block);
  EXPECT_GT(50, steps);
}

TEST(Memory, ABufferKeepsItsContentWhileOthersComeAndGo) {
  // Each value says who wrote it.
  const auto growMany = [](std::uint32_t seed) {
    for (std::uint32_t round = 0; round < 30; ++round) {
      Buffer<std::uint32_t> buffer;
      const std::uint32_t values = 20'000 * (1 + (seed + round) % 7);
      for (std::uint32_t value = 0; value < values; ++value) buffer.push(value * 1'000 + seed);
      Buffer<std::uint32_t> moved;
      moved = std::move(buffer);
      std::fill_n(moved.room(values), values, seed);
      moved.grow(values);
      ASSERT_EQ(moved.size(), 2 * values);
      for (std::uint32_t value = 0; value < values; ++value) {
        ASSERT_EQ(moved[value], value * 1'000 + seed);
        ASSERT_EQ(moved[values + value], seed);
      }
    }
  };
  std::thread other(growMany, 1);
  growMany(2);
  other.join();
}

}  // namespace
}  // namespace quillmere
