// Every system call of the server fails in turn: the first of its kind, the second, and so on; once
// and from then on; in whole conversations over every kind of standard input.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/mman.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <system_error>
#include <thread>

#include "platform/process.hpp"
#include "support/desktop_app.hpp"
#include "support/fault_order.hpp"
#include "support/running_server.hpp"

namespace quillmere {
namespace {

const std::string hello = R"({"jsonrpc":"2.0","id":"hello","method":"initialize"})"
                          "\n";
const std::string bye = R"({"jsonrpc":"2.0","id":"bye","method":"shutdown"})"
                        "\n";
const std::string largeText(90'000, 'x');

constexpr auto sanitizers = std::string_view(QUILLMERE_SANITIZERS);
/// ThreadSanitizer has a thread of its own.
constexpr std::ptrdiff_t threadsWithOneWorker = sanitizers == "thread" ? 3 : 2;

std::string deviceList(std::string_view taskId) {
  return R"({"jsonrpc":"2.0","id":1,"method":"tools/call","params":{"name":)"
         R"("quillmere.devices.list","arguments":{"taskId":")" +
         std::string(taskId) + "\"}}}\n";
}

std::string ping(std::string_view padding) {
  return R"({"jsonrpc":"2.0","id":1,"method":"ping","params":{"x":")" + std::string(padding) +
         "\"}}\n";
}

/// What a client sends while one fault is in force.
struct Script {
  enum class Input { pipe, socketPair, file };
  std::string_view name;
  Input input;
  std::string wire;
  /// Under which the client is told, when there is no memory for it.
  std::string_view idWithoutMemory = "1";
  /// The fault is in force from the program's start, and the client sends nothing more.
  bool isWhole = false;
};
using Input = Script::Input;

const std::string longLine = ping(largeText);
const std::string longBody =
    "Content-Length: " + std::to_string(longLine.size()) + "\r\n\r\n" + longLine;
const Script scripts[] = {
    {"a call over pipes", Input::pipe, deviceList("small")},
    {"a large answer", Input::pipe, deviceList("large")},
    {"a long line over pipes", Input::pipe, longLine, "null"},
    {"a long line over socket pairs", Input::socketPair, longLine, "null"},
    {"a long body", Input::pipe, longBody, "null"},
    {"all over pipes", Input::pipe, hello + ping("") + bye, "", true},
    {"all from a file", Input::file, hello + ping("") + bye, "", true},
};

/// What must come of a fault, beside an error's code and text.
constexpr std::string_view works = "as without the fault";
constexpr std::string_view ends = "the end of the process";
/// Said before the end, when it comes behind the first header line.
constexpr std::string_view cutOff = "-32700,\"message\":\"Parse error: incomplete Content-Length ";
constexpr std::string_view noMemory = "-32603 Internal error: out of memory.";
constexpr std::string_view noSocket = "-32000 Could not create Quillmere MCP control socket.";
constexpr std::string_view notFound =
    "-32000 Quillmere MCP control socket was not found. Start Quillmere first.";
/// SOCKET and ERROR stand for the socket's path and the system's text.
constexpr std::string_view notReached =
    "-32000 Could not reach Quillmere MCP control socket: SOCKET: ERROR";
constexpr std::string_view connectTimedOut =
    "-32000 Could not reach Quillmere MCP control socket: SOCKET: Timed out connecting to "
    "Quillmere MCP control socket.";
constexpr std::string_view notWritten = "-32000 Could not write to Quillmere MCP control socket.";
constexpr std::string_view closed = "-32000 Quillmere closed the MCP control connection.";
constexpr std::string_view noThread =
    "-32603 Internal error: no thread is available for this request.";

constexpr int shortCount = 0;
constexpr int timedOut = 0;
constexpr int nothing = -1;

struct Fault {
  std::string_view name;
  Call call;
  std::vector<int> errors;
  std::string_view outcome;
  bool connectPends = false;
};

const Fault faults[] = {
    {"reading input", Call::readInput, {EIO}, ends},
    {"waiting to read input", Call::readInput, {EINTR, EAGAIN, shortCount}, works},
    {"peeking", Call::peek, {EIO, EINTR, EAGAIN, shortCount}, works},
    {"duplicating", Call::tee, {EINVAL, EINTR, EAGAIN, shortCount, nothing}, works},
    {"reading a duplicate", Call::readElsewhere, {EIO, EINTR, shortCount}, works},
    {"reading at a position", Call::readAtPosition, {EIO, EINTR, shortCount}, works},
    {"making a pipe", Call::pipe, {EMFILE, ENFILE}, works},
    {"writing", Call::write, {EPIPE, EIO, ENOSPC}, ends},
    {"waiting to write", Call::write, {EINTR, EAGAIN, shortCount}, works},
    {"opening the property list", Call::open, {EMFILE, ENFILE, ENOMEM, EIO, EINTR}, noSocket},
    {"looking at the property list", Call::fileStatus, {EIO, ENOMEM}, noSocket},
    {"reading the property list", Call::readFile, {EIO, ENOMEM}, noSocket},
    {"reading it in pieces", Call::readFile, {EINTR, shortCount}, works},
    {"looking for the app", Call::linkStatus, {EACCES, ENOENT}, notFound},
    {"failing to look for the app", Call::linkStatus, {EIO, ENOMEM}, noSocket},
    {"making a socket", Call::socket, {EMFILE, ENFILE, ENOBUFS}, noSocket},
    {"connecting", Call::connect, {ECONNREFUSED, EAGAIN, EINTR}, notReached},
    {"waiting for a late connect", Call::poll, {EINTR}, notReached, true},
    {"a connect that is too late", Call::poll, {timedOut}, connectTimedOut, true},
    {"the outcome of a late connect", Call::getSocketOption, {ENOBUFS}, notReached, true},
    {"sending", Call::send, {EPIPE, ECONNRESET}, notWritten},
    {"sending in pieces", Call::send, {shortCount}, works},
    {"receiving", Call::receive, {ECONNRESET, EAGAIN, EINTR}, closed},
    {"receiving in pieces", Call::receive, {shortCount}, works},
    {"starting a thread", Call::startThread, {EAGAIN}, noThread},
    {"allocating", Call::largeAllocation, {ENOMEM}, noMemory},
};

using Transcript = std::vector<std::string>;

constexpr std::string_view releasedApp = "com.tallowbrook.wickfern";
constexpr int once = 1;
/// More often than a script makes any call, but not for ever: what repeats its call goes on.
constexpr int fromThenOn = 1'000;

/// The server inside the released app, and what gives it orders to fail.
struct ServerUnderOrders : testing::Test {
  TemporaryHome home;
  const std::string program = serverInsideApp(home, releasedApp);
  FaultOrder* order = nullptr;

  ServerUnderOrders() {
    const std::string path = home.write("order", std::string(sizeof(FaultOrder), '\0'));
    const Descriptor file(::open(path.c_str(), O_RDWR | O_CLOEXEC));
    order = static_cast<FaultOrder*>(
        ::mmap(nullptr, sizeof(FaultOrder), PROT_READ | PROT_WRITE, MAP_SHARED, file.number(), 0));
    EXPECT_NE(MAP_FAILED, static_cast<void*>(order));
    ::setenv(faultOrderVariable, path.c_str(), 1);
    ::setenv("LD_PRELOAD", QUILLMERE_FAULT_INJECTOR, 1);
    // The one sanitizer wants to be loaded first, the other to wait a second before each end.
    ::setenv("ASAN_OPTIONS", "verify_asan_link_order=0", 1);
    ::setenv("TSAN_OPTIONS", "atexit_sleep_ms=0", 1);
  }
};

class FaultInjection : public ServerUnderOrders, public testing::WithParamInterface<Fault> {
 protected:
  static inline int faultsInjected = 0;

  static void SetUpTestSuite() { prepareProcess(); }
  static void TearDownTestSuite() { std::cout << faultsInjected << " faults injected\n"; }

  /// Everything that a new server says to a script, to a call after it without a fault, and to the
  /// end. What it must keep to whatever it says is checked here.
  Transcript transcriptOf(const Script& script) {
    const DesktopApp app(home.releaseSocket(), [](const AppConnection& connection) {
      if (const auto request = connection.receive()) {
        const bool isLarge = *request->object().findString("taskId") == "large";
        connection.answer({{"ok", true}, {"text", isLarge ? largeText : "small"}});
        connection.waitUntilClosed();
      }
    });
    Transcript all;
    if (script.isWhole) order->call = GetParam().call;
    ServerProcess server(optionsFor(script));
    const auto isAnswered = [&] {
      const auto message = server.receive();
      if (message) all.emplace_back(message->root().text());
      return message != nullptr;
    };
    if (script.isWhole) {
      if (script.input != Input::file) server.send(script.wire);
    } else {
      server.send(hello);
      EXPECT_TRUE(isAnswered());
      const std::ptrdiff_t descriptors = count(server, "fd");
      order->call = GetParam().call;
      server.send(script.wire);
      const bool hasEnded = !isAnswered() || (GetParam().outcome == ends && order->failed > 0);
      if (!hasEnded) {
        order->call = Call::none;
        // By then the worker is idle, and is not joined by another.
        while (!isAtRest(server)) std::this_thread::yield();
        server.send(deviceList("small"));
        EXPECT_TRUE(isAnswered());
        EXPECT_EQ(descriptors, count(server, "fd"));
        EXPECT_GE(threadsWithOneWorker, count(server, "task"));
        server.send(bye);
      }
    }
    while (isAnswered()) {
    }
    EXPECT_EQ(0, server.waitForExit());
    order->call = Call::none;
    return all;
  }

  /// Runs a script with the fault at one place, once and from then on. Returns false when the
  /// script makes the call less often.
  bool injectBoth(const Script& script, int error, int before, const Transcript& usual) {
    const auto injected = [&](int inARow) {
      SCOPED_TRACE(std::string(script.name) + ", error " + std::to_string(error) + ", after " +
                   std::to_string(before) + " calls, times " + std::to_string(inARow));
      return inject(script, error, before, inARow, usual);
    };
    return injected(once) && injected(fromThenOn);
  }

 private:
  bool inject(const Script& script, int error, int before, int inARow, const Transcript& usual) {
    const Fault& fault = GetParam();
    order->error = error;
    order->before = before;
    order->inARow = inARow;
    order->connectPends = fault.connectPends;
    order->calls = 0;
    const Transcript all = transcriptOf(script);
    order->inARow = 0;
    order->connectPends = false;
    const int failed = order->failed.exchange(0);

    Transcript expected = usual;
    if (failed > 0 && fault.outcome == ends) {
      EXPECT_LT(all.size(), usual.size());
      expected.resize(std::min(all.size(), usual.size()));
      if (!all.empty() && all.back().find(cutOff) != std::string::npos)
        expected.back() = all.back();
    } else if (failed > 0 && fault.outcome != works && !script.isWhole) {
      expected.at(1) = errorFor(script, error);
    }
    EXPECT_EQ(expected, all);
    faultsInjected += failed > 0 ? 1 : 0;
    return failed > 0;
  }

  [[nodiscard]] ServerProcess::Options optionsFor(const Script& script) const {
    if (script.input == Input::file) {
      const std::string file = home.write("input", script.wire);
      return {.program = "/bin/sh",
              .arguments = {"-c", "exec \"$0\" <\"$1\"", program, file},
              .home = home.path()};
    }
    return {
        .program = program,
        .home = home.path(),
        .streams = script.input == Input::pipe ? ChildStreams::pipes : ChildStreams::socketPairs};
  }

  static std::filesystem::directory_iterator entries(const ServerProcess& server,
                                                     const std::string& folder) {
    return std::filesystem::directory_iterator("/proc/" + std::to_string(server.processID()) + "/" +
                                               folder);
  }
  static std::ptrdiff_t count(const ServerProcess& server, const std::string& what) {
    const auto all = entries(server, what);
    return std::distance(begin(all), end(all));
  }
  /// Whether no thread runs.
  static bool isAtRest(const ServerProcess& server) {
    const auto threads = entries(server, "task");
    return std::all_of(begin(threads), end(threads), [](const auto& thread) {
      std::string line;
      std::getline(std::ifstream(thread.path() / "stat"), line);
      return line.find(") R ") == std::string::npos;
    });
  }

  [[nodiscard]] std::string errorFor(const Script& script, int error) const {
    const Fault& fault = GetParam();
    std::string text(fault.outcome);
    for (const auto& [name, value] : {std::pair("SOCKET", home.releaseSocket()),
                                      std::pair("ERROR", std::generic_category().message(error))}) {
      if (const auto at = text.find(name); at != std::string::npos) {
        text.replace(at, std::string_view(name).size(), value);
      }
    }
    const std::size_t blank = text.find(' ');
    const std::string_view id = fault.outcome == noMemory ? script.idWithoutMemory : "1";
    return R"({"jsonrpc":"2.0","id":)" + std::string(id) + R"(,"error":{"code":)" +
           text.substr(0, blank) + R"(,"message":")" + text.substr(blank + 1) + "\"}}";
  }
};

TEST_P(FaultInjection, IsAnsweredOrSurvivedOrEndsTheProcess) {
  if (GetParam().call == Call::largeAllocation && !sanitizers.empty()) {
    GTEST_SKIP() << "\nSKIPPED: failing allocations, since sanitizers bring their own allocator.";
  }
  const int injectedBefore = faultsInjected;
  for (const Script& script : scripts) {
    const Transcript usual = transcriptOf(script);
    ASSERT_EQ(script.isWhole ? 3U : 4U, usual.size());
    ASSERT_EQ(std::string::npos, usual[1].find("\"error\"")) << usual[1];
    for (const int error : GetParam().errors) {
      int before = 0;
      while (injectBoth(script, error, before, usual) && !HasFailure()) ++before;
      // A script that does not make the call is not asked for its other errors.
      if (before == 0) break;
    }
  }
  EXPECT_GT(faultsInjected, injectedBefore) << "no script makes this call";
}

TEST_F(ServerUnderOrders, ReportsAllTheSameWhenItCannotTellWhichAppIsItsOwn) {
  const DesktopApp app(home.releaseSocket());
  struct OrderCase {
    std::string_view name;
    Call call;
    int error;
    std::string_view identifier;
    bool exists, isSocket;
  };
  const OrderCase cases[] = {
      {"without a descriptor", Call::open, EMFILE, "null", true, true},
      {"without knowing what is there", Call::linkStatus, EIO, "\"com.tallowbrook.wickfern\"",
       false, false},
  };
  for (const auto& [name, call, error, identifier, exists, isSocket] : cases) {
    SCOPED_TRACE(name);
    order->error = error;
    order->inARow = fromThenOn;
    order->call = call;
    const auto [output, status] =
        runToEnd({.program = program, .arguments = {"--doctor"}, .home = home.path()});
    order->call = Call::none;
    EXPECT_EQ(0, status);
    const JsonObject report = json(output);
    EXPECT_EQ(identifier, report.find("bundledAppIdentifier")->text());
    EXPECT_EQ("Could not create Quillmere MCP control socket.",
              report.findString("socketError")->view());
    const JsonArray candidates = report.findArray("socketCandidates").value();
    EXPECT_EQ(3U, candidates.size());
    // The released app's, with its own app known or not.
    const JsonObject candidate =
        (*std::next(candidates.begin(), identifier == "null" ? 1 : 0)).asObject().value();
    EXPECT_EQ(exists, candidate.findBoolean("exists"));
    EXPECT_EQ(isSocket, candidate.findBoolean("isSocket"));
    EXPECT_EQ(home.releaseSocket(), candidate.findString("path")->view());
  }
}

std::string testName(const testing::TestParamInfo<Fault>& info) {
  std::string name(info.param.name);
  std::ranges::replace(name, ' ', '_');
  std::erase(name, '\'');
  return name;
}

INSTANTIATE_TEST_SUITE_P(Each, FaultInjection, testing::ValuesIn(faults), testName);

}  // namespace
}  // namespace quillmere
