#include "bench/app.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "bench/payloads.hpp"
#include "control/control_frame.hpp"
#include "harness/system.hpp"

namespace quillmere::bench {

namespace {

using Clock = std::chrono::steady_clock;

struct Report {
  enum class Kind : std::int64_t { arrived, broken } kind;
  std::int64_t nanoseconds;
};

[[noreturn]] void fail(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

/// The child's side.
class Service {
 public:
  Service(const UnixListener& socket, Descriptor reportPipe)
      : listener(socket), reports(std::move(reportPipe)) {}

  [[noreturn]] void run() {
    for (;;) {
      std::vector<pollfd> entries = {{listener.number(), POLLIN, 0}};
      for (const Descriptor& each : unanswered) entries.push_back({each.number(), POLLIN, 0});
      waitFor(entries);
      for (std::size_t i = unanswered.size(); i-- > 0;) {
        if (entries[i + 1].revents == 0) continue;
        report(Report::Kind::broken);
        unanswered.erase(unanswered.begin() + static_cast<std::ptrdiff_t>(i));
      }
      if (entries[0].revents != 0) acceptAll();
      while (!held.empty() && held.front().due <= Clock::now()) {
        send(held.front().connection, frameOf(answers::small));
        held.pop_front();
      }
    }
  }

 private:
  struct Held {
    Descriptor connection;
    Clock::time_point due;
  };

  void waitFor(std::vector<pollfd>& entries) const {
    timespec time{};
    if (!held.empty()) {
      const auto left = std::max(held.front().due - Clock::now(), Clock::duration::zero());
      time.tv_nsec = std::chrono::nanoseconds(left).count();
    }
    static_cast<void>(
        ::ppoll(entries.data(), entries.size(), held.empty() ? nullptr : &time, nullptr));
  }

  void acceptAll() {
    for (;;) {
      Descriptor connection(::accept4(listener.number(), nullptr, nullptr, SOCK_CLOEXEC));
      if (!connection.isOpen()) return;
      if (const auto request = receive(connection)) answer(std::move(connection), *request);
    }
  }

  static std::optional<std::string> receive(const Descriptor& connection) {
    std::array<char, controlPrefixBytes> prefix{};
    if (::recv(connection.number(), prefix.data(), prefix.size(), MSG_WAITALL) !=
        static_cast<ssize_t>(prefix.size())) {
      return std::nullopt;
    }
    const std::size_t length = controlBodyLength({prefix.data(), prefix.size()});
    std::string body(length, '\0');
    const auto count = ::recv(connection.number(), body.data(), length, MSG_WAITALL);
    return count == static_cast<ssize_t>(length) ? std::optional(std::move(body)) : std::nullopt;
  }

  void answer(Descriptor connection, std::string_view request) {
    constexpr std::string_view key = R"("taskId":")";
    const std::size_t at = request.find(key);
    if (at == std::string_view::npos) return;
    request.remove_prefix(at + key.size());
    const std::string_view wanted = request.substr(0, request.find('"'));
    if (wanted == answers::held) {
      held.push_back({std::move(connection), Clock::now() + std::chrono::milliseconds(heldMs)});
    } else if (wanted == answers::none) {
      unanswered.push_back(std::move(connection));
      report(Report::Kind::arrived);
    } else {
      send(connection, frameOf(wanted));
    }
  }

  /// Made when it is first asked for; empty when there is no such payload.
  std::string_view frameOf(std::string_view name) {
    auto place = frames.find(name);
    if (place == frames.end()) {
      const std::string payload = payloadCalled(name);
      place = frames.emplace(name, payload.empty() ? "" : controlFrame(payload)).first;
    }
    return place->second;
  }

  static void send(const Descriptor& connection, std::string_view bytes) {
    while (!bytes.empty()) {
      const auto count = ::send(connection.number(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
      if (count <= 0) return;
      bytes.remove_prefix(static_cast<std::size_t>(count));
    }
  }

  void report(Report::Kind kind) const {
    const Report entry{kind, std::chrono::nanoseconds(Clock::now().time_since_epoch()).count()};
    if (::write(reports.number(), &entry, sizeof entry) != sizeof entry) ::_exit(0);
  }

  const UnixListener& listener;
  const Descriptor reports;
  std::map<std::string, std::string, std::less<>> frames;
  std::deque<Held> held;
  std::vector<Descriptor> unanswered;
};

Report nextReport(const Descriptor& reports) {
  Report entry{};
  if (::read(reports.number(), &entry, sizeof entry) != sizeof entry) fail("the benchmark's app");
  return entry;
}

}  // namespace

App::App(const std::string& socketPath) : listener(socketPath, SOMAXCONN) {
  ::fcntl(listener.number(), F_SETFL, O_NONBLOCK);
  Channel reporting = makePipe();
  child = ::fork();
  if (child < 0) fail("fork");
  if (child == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    Service(listener, std::move(reporting.writeEnd)).run();
  }
  reports = std::move(reporting.readEnd);
}

App::~App() {
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
}

void App::waitForArrival() {
  if (nextReport(reports).kind != Report::Kind::arrived) throw std::logic_error("No call came.");
}

std::int64_t App::waitForBreak() {
  const Report entry = nextReport(reports);
  if (entry.kind != Report::Kind::broken) throw std::logic_error("A call too many came.");
  return entry.nanoseconds;
}

}  // namespace quillmere::bench
