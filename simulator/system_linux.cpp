#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

#include "simulator/system.hpp"

namespace quillmere {

namespace {

[[noreturn]] void fail(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

Channel makePipe() {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) fail("pipe");
  return {Descriptor(ends[0]), Descriptor(ends[1])};
}

Channel makeSocketPair() {
  std::array<int, 2> ends{};
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) fail("socketpair");
  return {Descriptor(ends[0]), Descriptor(ends[1])};
}

Descriptor makeUnixSocket() {
  return Descriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
}

Descriptor acceptConnection(const Descriptor& listener) {
  return Descriptor(::accept4(listener.number(), nullptr, nullptr, SOCK_CLOEXEC));
}

char** environmentVariables() {
  return environ;
}

bool endsWithin(pid_t child, std::chrono::milliseconds patience) {
  // A descriptor of the process turns readable when it ends: no polling, no signal handler.
  const Descriptor process(static_cast<int>(::syscall(SYS_pidfd_open, child, 0)));
  pollfd entry{.fd = process.number(), .events = POLLIN, .revents = 0};
  return process.isOpen() && ::poll(&entry, 1, static_cast<int>(patience.count())) > 0;
}

}  // namespace quillmere
