#include "harness/patience.hpp"

#include <poll.h>

#include <atomic>

namespace quillmere {

namespace {

std::atomic<bool> hasWaitedInVain = false;

void waitFor(int descriptor, short events, const std::string& what) {
  const auto most = static_cast<int>(std::chrono::milliseconds(patience()).count());
  pollfd entry{.fd = descriptor, .events = events, .revents = 0};
  if (::poll(&entry, 1, most) == 0) throw WaitedInVain(what);
}

}  // namespace

std::chrono::seconds patience() {
  return std::chrono::seconds(hasWaitedInVain ? 2 : 30);
}

WaitedInVain::WaitedInVain(const std::string& what)
    : std::runtime_error("waited " + std::to_string(patience().count()) + " seconds in vain for " +
                         what) {
  hasWaitedInVain = true;
}

void waitUntilReadable(int descriptor, const std::string& what) {
  waitFor(descriptor, POLLIN, what);
}

void waitUntilWritable(int descriptor, const std::string& what) {
  waitFor(descriptor, POLLOUT, what);
}

}  // namespace quillmere
