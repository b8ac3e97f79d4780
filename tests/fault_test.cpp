// Every system call and every allocation of the server fails in turn: the first of its kind, the
// second, and so on; once, and from then on; in whole conversations over each kind of input.
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

#include "harness/desktop_app.hpp"
#include "harness/holdings.hpp"
#include "peers/patience.hpp"
#include "platform/process.hpp"
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
/// ThreadSanitizer has its own thread.
constexpr std::size_t threadsWithOneWorker = sanitizers == "thread" ? 3 : 2;

std::string deviceList(std::string_view taskId) {
  return R"({"jsonrpc":"2.0","id":1,"method":"tools/call","params":{"name":)"
         R"("quillmere.devices.list","arguments":{"taskId":")" +
         std::string(taskId) + "\"}}}\n";
}

std::string ping(std::string_view padding) {
  return R"({"jsonrpc":"2.0","id":1,"method":"ping","params":{"x":")" + std::string(padding) +
         "\"}}\n";
}

/// What a client sends while a fault is active.
struct Script {
  enum class Input { pipe, socketPair, file };
  std::string_view name;
  Input input;
  std::string wire;
  /// The fault is active from the program's start, and the client sends nothing more.
  bool isWhole = false;
};
using Input = Script::Input;

const std::string longLine = ping(largeText);
const std::string longBody =
    "Content-Length: " + std::to_string(longLine.size()) + "\r\n\r\n" + longLine;
const Script scripts[] = {
    {"a call over pipes", Input::pipe, deviceList("small")},
    {"a large result", Input::pipe, deviceList("large")},
    {"a long line over pipes", Input::pipe, longLine},
    {"a long line over socket pairs", Input::socketPair, longLine},
    {"a long body", Input::pipe, longBody},
    {"all over pipes", Input::pipe, hello + ping("") + bye, true},
    {"all from a file", Input::file, hello + ping("") + bye, true},
};

/// The outcome of a fault; any other value is an error's code and text.
constexpr std::string_view works = "as without the fault";
constexpr std::string_view ends = "the end of the process";
/// Written before the end if that comes after the first header line.
constexpr std::string_view cutOff = "-32700,\"message\":\"Parse error: incomplete Content-Length ";
constexpr std::string_view noSocket = "-32000 Could not create Quillmere MCP control socket.";
constexpr std::string_view notFound =
    "-32000 Quillmere MCP control socket was not found. Start Quillmere first.";
/// SOCKET and ERROR stand for the socket's path and the system's text.
constexpr std::string_view notReached =
    "-32000 Could not reach Quillmere MCP control socket: SOCKET: ERROR";
constexpr std::string_view connectTimesOut =
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
    {"a connect that is too late", Call::poll, {timedOut}, connectTimesOut, true},
    {"asking how a late connect ended", Call::getSocketOption, {ENOBUFS}, notReached, true},
    {"a late connect that fails", Call::connectOutcome, {ECONNREFUSED}, notReached, true},
    {"sending", Call::send, {EPIPE, ECONNRESET}, notWritten},
    {"sending in pieces", Call::send, {shortCount}, works},
    {"receiving", Call::receive, {ECONNRESET, EAGAIN, EINTR}, closed},
    {"receiving in pieces", Call::receive, {shortCount}, works},
    {"starting a thread", Call::startThread, {EAGAIN}, noThread},
};

using Transcript = std::vector<std::string>;

constexpr std::string_view releasedApp = "com.tallowbrook.wickfern";
constexpr int once = 1;
/// More often than a script makes any call, but limited, so that a loop that repeats its call ends.
constexpr int fromThenOn = 1'000;
constexpr int forGood = 1'000'000;

/// The server inside the released app, and the fault orders for it.
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
    // One sanitizer insists on being loaded first, the other would wait a second before each exit.
    ::setenv("ASAN_OPTIONS", "verify_asan_link_order=0", 1);
    ::setenv("TSAN_OPTIONS", "atexit_sleep_ms=0", 1);
  }
};

class FaultInjection : public ServerUnderOrders, public testing::WithParamInterface<Fault> {
 protected:
  static inline int faultsInjected = 0;

  static void SetUpTestSuite() { prepareProcess(); }
  static void TearDownTestSuite() { std::cout << faultsInjected << " faults injected\n"; }

  /// Everything that a new server writes during a script, a later call without a fault, and the
  /// end. Checks here what must hold whatever it writes.
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
      const auto message = server.receiveText();
      if (message) all.emplace_back(*message);
      return message.has_value();
    };
    if (script.isWhole) {
      if (script.input != Input::file) server.send(script.wire);
    } else {
      server.send(hello);
      EXPECT_TRUE(isAnswered());
      const std::size_t descriptors = holdingsOf(server.processID()).descriptors;
      order->call = GetParam().call;
      server.send(script.wire);
      const bool hasEnded = !isAnswered() || (GetParam().outcome == ends && order->failed > 0);
      if (!hasEnded) {
        order->call = Call::none;
        // The worker is idle then, so that no second one starts.
        waitUntil("the server's threads to rest", [&] { return isAtRest(server); });
        server.send(deviceList("small"));
        EXPECT_TRUE(isAnswered());
        EXPECT_EQ(descriptors, holdingsOf(server.processID()).descriptors);
        EXPECT_GE(threadsWithOneWorker, holdingsOf(server.processID()).threads);
        server.send(bye);
      }
    }
    while (isAnswered()) {
    }
    EXPECT_EQ(0, server.waitForExit());
    order->call = Call::none;
    return all;
  }

  /// Runs a script with the fault at one place, once and from then on. Returns false if the script
  /// does not make that many calls.
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
      expected.at(1) = errorFor(error);
    }
    EXPECT_EQ(expected, all);
    faultsInjected += failed > 0 ? 1 : 0;
    return failed > 0;
  }

  [[nodiscard]] ServerProcess::Options optionsFor(const Script& script) const {
    if (script.input == Input::file) {
      const std::string file = home.write("input", script.wire);
      return {.program = "/bin/sh", .arguments = {"-c", "exec \"$0\" <\"$1\"", program, file}};
    }
    return {
        .program = program,
        .streams = script.input == Input::pipe ? ChildStreams::pipes : ChildStreams::socketPairs};
  }

  /// Whether no thread is running.
  static bool isAtRest(const ServerProcess& server) {
    const std::filesystem::directory_iterator threads("/proc/" +
                                                      std::to_string(server.processID()) + "/task");
    return std::all_of(begin(threads), end(threads), [](const auto& thread) {
      std::string line;
      std::getline(std::ifstream(thread.path() / "stat"), line);
      return line.find(") R ") == std::string::npos;
    });
  }

  [[nodiscard]] std::string errorFor(int error) const {
    const Fault& fault = GetParam();
    std::string text(fault.outcome);
    for (const auto& [name, value] : {std::pair("SOCKET", home.releaseSocket()),
                                      std::pair("ERROR", std::generic_category().message(error))}) {
      if (const auto at = text.find(name); at != std::string::npos) {
        text.replace(at, std::string_view(name).size(), value);
      }
    }
    const std::size_t blank = text.find(' ');
    return R"({"jsonrpc":"2.0","id":1,"error":{"code":)" + text.substr(0, blank) +
           R"(,"message":")" + text.substr(blank + 1) + "\"}}";
  }
};

TEST_P(FaultInjection, GivesAnErrorOrIsSurvivedOrEndsTheProcess) {
  const int injectedBefore = faultsInjected;
  for (const Script& script : scripts) {
    const Transcript usual = transcriptOf(script);
    ASSERT_EQ(script.isWhole ? 3U : 4U, usual.size());
    ASSERT_EQ(std::string::npos, usual[1].find("\"error\"")) << usual[1];
    for (const int error : GetParam().errors) {
      int before = 0;
      while (injectBoth(script, error, before, usual) && !HasFailure()) ++before;
      // A script that does not make the call needs no other errors.
      if (before == 0) break;
    }
  }
  EXPECT_GT(faultsInjected, injectedBefore) << "no script makes this call";
}

TEST_F(ServerUnderOrders, DoctorStillReportsWhenItCannotTellWhichAppIsItsOwn) {
  const DesktopApp app(home.releaseSocket());
  order->inARow = fromThenOn;
  for (const auto& [call, error] : {std::pair(Call::open, EMFILE), {Call::linkStatus, EIO}}) {
    order->error = error;
    order->call = call;
    const auto [output, status] = runToEnd({.program = program, .arguments = {"--doctor"}});
    order->call = Call::none;
    EXPECT_EQ(0, status);
    const JsonObject report = json(output);
    const bool isAppKnown = call != Call::open;
    EXPECT_EQ(isAppKnown, report.findString("bundledAppIdentifier") == releasedApp);
    EXPECT_EQ("Could not create Quillmere MCP control socket.", *report.findString("socketError"));
    std::string found;
    const JsonArray candidates = report.findArray("socketCandidates").value();
    EXPECT_EQ(3U, candidates.size());
    for (const JsonValue each : candidates) {
      if (each.asObject()->findBoolean("exists") == true)
        found += each.asObject()->findString("path")->view();
    }
    EXPECT_EQ(isAppKnown ? "" : home.releaseSocket(), found);
  }
}

std::string request(std::string_view id, std::string_view method, std::string_view params) {
  return R"({"jsonrpc":"2.0","id":")" + std::string(id) + R"(","method":")" + std::string(method) +
         R"(","params":)" + std::string(params) + "}\n";
}

std::string framed(const std::string& message) {
  return "Content-Length: " + std::to_string(message.size()) + "\r\n\r\n" + message;
}

/// A request's id, what the client sends for it, and whether the response is an error.
struct Exchange {
  std::string_view id;
  std::string wire;
  bool fails = false;
};
const std::string hugeText(1'000'000, 'x');
const Exchange session[] = {
    {"hello", hello},
    {"list", request("list", "tools/list", "{}")},
    {"call", request("call", "tools/call",
                     R"({"name":"quillmere.devices.list","arguments":{"taskName":"t"}})")},
    {"huge call", request("huge call", "tools/call",
                          R"({"name":"quillmere.devices.list","arguments":{"taskId":"huge"}})")},
    {"guided call", request("guided call", "tools/call", R"({"name":"quillmere.sessions.list"})")},
    {"read", request("read", "resources/read", R"({"uri":"quillmere://devices"})")},
    {"prompt", request("prompt", "prompts/get",
                       R"({"name":"phone_task_assistant","arguments":{"task":"Call home."}})")},
    {"mistake", request("mistake", "tools/call", R"({"name":"no such tool"})"), true},
    {"ping", request("cancelled", "tools/call",
                     R"({"name":"quillmere.devices.list","arguments":{"taskId":"held"}})") +
                 R"({"jsonrpc":"2.0","method":"notifications/cancelled",)"
                 R"("params":{"requestId":"cancelled","reason":"r"}})"
                 "\n" +
                 request("ping", "ping", "{}")},
    // Its method's name and its list of values are huge.
    {"huge", request("huge", hugeText, R"({"x":[)" + times(20'000, "0,") + "0]}"), true},
    {"framed", framed(request("framed", "ping", "{}"))},
    {"bye", framed(bye)},
};

std::string_view idOf(const JsonDocument& message) {
  return message.object().find("id")->text();
}

void answerAsAsked(const AppConnection& connection) {
  if (const auto asked = connection.receive()) {
    const auto task = asked->object().findString("taskId");
    if (!task || *task != "held") {
      connection.answer(
          {{"ok", true}, {"text", task ? hugeText : "small"}, {"sessions", JsonText::array()}});
    }
    connection.waitUntilClosed();
  }
}

/// While it lives, standard error goes into a file, also for child processes.
class StandardErrorKept {
 public:
  explicit StandardErrorKept(const std::string& path)
      : file(::open(path.c_str(), O_RDWR | O_CLOEXEC)), before(::dup(STDERR_FILENO)) {
    ::dup2(file.number(), STDERR_FILENO);
  }
  StandardErrorKept(const StandardErrorKept&) = delete;
  StandardErrorKept& operator=(const StandardErrorKept&) = delete;
  ~StandardErrorKept() { ::dup2(before.number(), STDERR_FILENO); }
  [[nodiscard]] off_t size() const { return ::lseek(file.number(), 0, SEEK_END); }

 private:
  const Descriptor file;
  const Descriptor before;
};

/// Calls `run` with the first allocation failing, then the second, and so on until there are no
/// more; with one failure, and with all from there on.
template <typename Run>
void failEachAllocation(FaultOrder& order, Run run) {
  int injected = 0;
  order.error = ENOMEM;
  for (const int inARow : {once, forGood}) {
    bool hasFailed = true;
    for (int before = 0; hasFailed && !testing::Test::HasFailure(); ++before) {
      SCOPED_TRACE(std::to_string(inARow) + " times, after " + std::to_string(before) +
                   " allocations");
      order.before = before;
      order.inARow = inARow;
      order.calls = 0;
      order.call = Call::allocate;
      run(inARow);
      order.call = Call::none;
      hasFailed = order.failed.exchange(0) > 0;
      injected += hasFailed ? 1 : 0;
    }
  }
  std::cout << injected << " faults injected\n";
}

TEST_F(ServerUnderOrders, AnswersEachRequestOnceOrEndsIfAnAllocationFails) {
  if (!sanitizers.empty()) GTEST_SKIP() << "\nSKIPPED: sanitizers bring their own allocator.";
  prepareProcess();
  const StandardErrorKept errors(home.write("errors", ""));
  const DesktopApp app(home.releaseSocket(), answerAsAsked);
  int outOfMemoryErrors = 0;
  failEachAllocation(*order, [&](int inARow) {
    ServerProcess server({.program = program});
    int failures = 0;
    bool isCancelledAnswered = false;
    // A cancelled request may have failed before; its error response may come at any time.
    const auto next = [&] {
      auto message = server.receive();
      if (!message || isCancelledAnswered || idOf(*message) != "\"cancelled\"") return message;
      isCancelledAnswered = true;
      return server.receive();
    };
    bool isServedAgain = false;
    for (const auto& [id, wire, fails] : session) {
      // Once a request was served after the failure, further ones show nothing new.
      if (isServedAgain && id != "bye") continue;
      isServedAgain = order->failed > 0;
      server.send(wire);
      const auto answer = next();
      if (!answer) {
        EXPECT_LT(0, order->failed) << "ended at " << id;
        break;
      }
      EXPECT_EQ('"' + std::string(id) + '"', idOf(*answer));
      const auto error = answer->object().findObject("error");
      failures += error.has_value() != fails ? 1 : 0;
      if (error && error->findString("message") == "Internal error: out of memory.")
        ++outOfMemoryErrors;
    }
    EXPECT_EQ(nullptr, next());
    EXPECT_EQ(0, server.waitForExit());
    EXPECT_EQ(0, errors.size());
    EXPECT_GE(inARow == forGood ? forGood : 1, failures);
  });
  EXPECT_LT(0, outOfMemoryErrors);
}

TEST_F(ServerUnderOrders, FinishesTheCurrentFrameWhenMemoryRunsOut) {
  if (!sanitizers.empty()) GTEST_SKIP() << "\nSKIPPED: sanitizers bring their own allocator.";
  const DesktopApp app(home.releaseSocket(), answerAsAsked);
  ServerProcess server({.program = program});
  server.send(hello);
  EXPECT_TRUE(server.receive());
  const auto* const hugeCall = std::ranges::find(session, "huge call", &Exchange::id);
  server.send(hugeCall->wire);
  // Until we read its beginning, the rest does not fit into the pipe.
  server.waitForOutput();
  order->error = ENOMEM;
  order->inARow = forGood;
  order->call = Call::allocate;
  server.send(ping(""));
  waitUntil("an allocation to fail", [&] { return order->failed > 0; });
  const auto answer = server.receive();
  ASSERT_TRUE(answer);
  EXPECT_EQ("\"huge call\"", idOf(*answer));
  EXPECT_EQ(nullptr, server.receive());
  EXPECT_EQ(0, server.waitForExit());
}

TEST_F(ServerUnderOrders, PrintsAllOrNothingIfAnAllocationFails) {
  if (!sanitizers.empty()) GTEST_SKIP() << "\nSKIPPED: sanitizers bring their own allocator.";
  const StandardErrorKept errors(home.write("errors", ""));
  for (const std::string option : {"--help", "--doctor"}) {
    const ServerProcess::Options options = {.program = program, .arguments = {option}};
    const std::string usual = runToEnd(options).output;
    const std::string lastLines = usual.substr(usual.size() - 60);
    failEachAllocation(*order, [&](int) {
      const auto [output, status] = runToEnd(options);
      // The report leaves out parts for which there is no memory.
      EXPECT_TRUE(output.empty() || (output.ends_with(lastLines) && status == 0)) << output;
      EXPECT_TRUE(status == 0 || status == 1) << status;
      EXPECT_EQ(0, errors.size());
    });
  }
}

std::string testName(const testing::TestParamInfo<Fault>& info) {
  std::string name(info.param.name);
  std::ranges::replace(name, ' ', '_');
  std::erase(name, '\'');
  return name;
}

/// Otherwise GoogleTest would print its bytes.
void PrintTo(const Fault& fault, std::ostream* out) {
  *out << fault.name;
}

INSTANTIATE_TEST_SUITE_P(Each, FaultInjection, testing::ValuesIn(faults), testName);

}  // namespace
}  // namespace quillmere
