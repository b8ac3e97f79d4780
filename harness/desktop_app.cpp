#include "harness/desktop_app.hpp"

#include <poll.h>

#include <array>
#include <utility>

#include "peers/patience.hpp"
#include "platform/worker_pool.hpp"

namespace quillmere {

namespace {

const std::string aConnection = "a connection to the app";

bool startTask(std::function<void()> task) {
  // Its threads are never joined, so the pool lives as long as the process.
  static auto& workers = *new WorkerPool;
  return workers.submit(std::move(task));
}

}  // namespace

DesktopApp::DesktopApp(std::string socketPath, Handler connectionHandler)
    : listener(std::move(socketPath)), handler(std::move(connectionHandler)) {
  if (handler) accepting = std::thread([this] { acceptAll(); });
}

DesktopApp::~DesktopApp() {
  listener.stop();
  if (!accepting.joinable()) return;
  accepting.join();
  std::unique_lock hold(lock);
  for (const AppConnection& each : _open) each.close();
  waitUntil("the connection handlers of a test to return", changed, hold,
            [this] { return _open.empty(); });
}

AppConnection DesktopApp::accept() const {
  waitUntilReadable(listener.number(), aConnection);
  return AppConnection(std::move(*listener.accept()));
}

std::optional<AppConnection> DesktopApp::acceptUnless(const ServerProcess& server) const {
  if (server.hasMore()) return std::nullopt;
  std::array<pollfd, 2> entries = {pollfd{listener.number(), POLLIN, 0},
                                   pollfd{server.outputDescriptor(), POLLIN, 0}};
  const auto most = static_cast<int>(std::chrono::milliseconds(patience()).count());
  if (::poll(entries.data(), entries.size(), most) == 0) throw TimedOut(aConnection);
  if (entries[0].revents == 0) return std::nullopt;
  return accept();
}

void DesktopApp::waitUntilIdle() {
  std::unique_lock hold(lock);
  waitUntil("every connection to end", changed, hold, [this] { return _open.empty(); });
}

void DesktopApp::acceptAll() {
  while (auto descriptor = listener.accept()) {
    std::unique_lock hold(lock);
    const auto place = _open.emplace(_open.end(), std::move(*descriptor));
    hold.unlock();
    // Without a thread the connection stays open, and the test that waits for it times out.
    static_cast<void>(startTask([this, place] { handle(place); }));
  }
}

void DesktopApp::handle(std::list<AppConnection>::iterator place) {
  handler(*place);
  const std::lock_guard hold(lock);
  _open.erase(place);
  changed.notify_all();
}

}  // namespace quillmere
