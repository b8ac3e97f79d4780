#include "bench/app.hpp"

#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "bench/payloads.hpp"
#include "control/control_frame.hpp"
#include "peers/app_connection.hpp"
#include "peers/patience.hpp"

namespace quillmere::bench {

namespace {

using Clock = std::chrono::steady_clock;

struct Report {
  enum class Kind : std::int64_t { arrived, broken } kind;
  std::int64_t nanoseconds;
};

/// The child's side.
class Service {
 public:
  Service(const UnixListener& socket, const Descriptor& reportPipe)
      : listener(socket), reports(reportPipe) {}

  [[noreturn]] void run() {
    for (;;) {
      std::vector<pollfd> entries = {{listener.number(), POLLIN, 0}};
      for (const AppConnection& each : unanswered) entries.push_back({each.number(), POLLIN, 0});
      waitFor(entries);
      for (std::size_t i = unanswered.size(); i-- > 0;) {
        if (entries[i + 1].revents == 0) continue;
        report(Report::Kind::broken);
        unanswered.erase(unanswered.begin() + static_cast<std::ptrdiff_t>(i));
      }
      if (entries[0].revents != 0) answer(AppConnection(*listener.accept()));
      while (!held.empty() && held.front().due <= Clock::now()) {
        held.front().connection.send(frameOf(answers::small));
        held.pop_front();
      }
    }
  }

 private:
  struct Held {
    AppConnection connection;
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

  void answer(AppConnection connection) {
    constexpr std::string_view key = R"("taskId":")";
    const std::string text = connection.receiveText().value_or("");
    std::string_view request(text);
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
      connection.send(frameOf(wanted));
    }
  }

  /// Made on first use; empty when there is no such payload.
  std::string_view frameOf(std::string_view name) {
    auto place = frames.find(name);
    if (place == frames.end()) {
      const std::string payload = payloadCalled(name);
      place = frames.emplace(name, payload.empty() ? "" : controlFrame(payload)).first;
    }
    return place->second;
  }

  void report(Report::Kind kind) const {
    const Report entry{kind, std::chrono::nanoseconds(Clock::now().time_since_epoch()).count()};
    if (::write(reports.number(), &entry, sizeof entry) != sizeof entry) ::_exit(0);
  }

  const UnixListener& listener;
  const Descriptor& reports;
  std::map<std::string, std::string, std::less<>> frames;
  std::deque<Held> held;
  std::vector<AppConnection> unanswered;
};

Report nextReport(const Descriptor& reports) {
  waitUntilReadable(reports.number(), "the benchmark's app");
  Report entry{};
  if (::read(reports.number(), &entry, sizeof entry) != sizeof entry) {
    throw std::runtime_error("The benchmark's app has ended.");
  }
  return entry;
}

}  // namespace

App::App(const std::string& socketPath) : listener(socketPath, SOMAXCONN), reports(makePipe()) {
  child = ::fork();
  if (child < 0) throw std::system_error(errno, std::generic_category(), "fork");
  if (child == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    reports.readEnd = Descriptor();
    Service(listener, reports.writeEnd).run();
  }
  reports.writeEnd = Descriptor();
}

App::~App() {
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
}

void App::waitForArrival() {
  if (nextReport(reports.readEnd).kind != Report::Kind::arrived)
    throw std::logic_error("The expected call did not come.");
}

std::int64_t App::waitForBreak() {
  const Report entry = nextReport(reports.readEnd);
  if (entry.kind != Report::Kind::broken) throw std::logic_error("There was an unexpected call.");
  return entry.nanoseconds;
}

}  // namespace quillmere::bench
