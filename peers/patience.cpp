#include "peers/patience.hpp"

#include <poll.h>

#include <atomic>

namespace quillmere {

namespace {

std::atomic<bool> hasTimedOut = false;

void waitFor(int descriptor, short events, const std::string& what) {
  const auto most = static_cast<int>(std::chrono::milliseconds(patience()).count());
  pollfd entry{.fd = descriptor, .events = events, .revents = 0};
  if (::poll(&entry, 1, most) == 0) throw TimedOut(what);
}

}  // namespace

std::chrono::seconds patience() {
  return std::chrono::seconds(hasTimedOut ? 2 : 30);
}

TimedOut::TimedOut(const std::string& what)
    : std::runtime_error("timed out after " + std::to_string(patience().count()) +
                         " s waiting for " + what) {
  hasTimedOut = true;
}

void waitUntilReadable(int descriptor, const std::string& what) {
  waitFor(descriptor, POLLIN, what);
}

void waitUntilWritable(int descriptor, const std::string& what) {
  waitFor(descriptor, POLLOUT, what);
}

}  // namespace quillmere
