#include "harness/patience.hpp"

#include <poll.h>

namespace quillmere {

namespace {

void waitFor(int descriptor, short events, const std::string& what) {
  constexpr int most = std::chrono::milliseconds(patience).count();
  pollfd entry{.fd = descriptor, .events = events, .revents = 0};
  if (::poll(&entry, 1, most) == 0) throw WaitedInVain(what);
}

}  // namespace

void waitUntilReadable(int descriptor, const std::string& what) {
  waitFor(descriptor, POLLIN, what);
}

void waitUntilWritable(int descriptor, const std::string& what) {
  waitFor(descriptor, POLLOUT, what);
}

}  // namespace quillmere
