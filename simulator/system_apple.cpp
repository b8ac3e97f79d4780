#include <crt_externs.h>
#include <fcntl.h>
#include <sys/event.h>
#include <sys/socket.h>
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

Descriptor closedOnExec(int number) {
  if (number >= 0) ::fcntl(number, F_SETFD, FD_CLOEXEC);
  return Descriptor(number);
}

/// There a write to a closed socket is deadly unless the socket itself says otherwise.
Descriptor socketOf(int number) {
  const int on = 1;
  if (number >= 0) ::setsockopt(number, SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on);
  return closedOnExec(number);
}

}  // namespace

Channel makePipe() {
  std::array<int, 2> ends{};
  if (::pipe(ends.data()) != 0) fail("pipe");
  return {closedOnExec(ends[0]), closedOnExec(ends[1])};
}

Channel makeSocketPair() {
  std::array<int, 2> ends{};
  if (::socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()) != 0) fail("socketpair");
  return {socketOf(ends[0]), socketOf(ends[1])};
}

Descriptor makeUnixSocket() {
  return socketOf(::socket(AF_UNIX, SOCK_STREAM, 0));
}

Descriptor acceptConnection(const Descriptor& listener) {
  return socketOf(::accept(listener.number(), nullptr, nullptr));
}

char** environmentVariables() {
  return *_NSGetEnviron();
}

bool endsWithin(pid_t child, std::chrono::milliseconds patience) {
  const Descriptor queue(::kqueue());
  struct kevent end {};
  EV_SET(&end, child, EVFILT_PROC, EV_ADD, NOTE_EXIT, 0, nullptr);
  const auto whole = std::chrono::duration_cast<std::chrono::seconds>(patience);
  const timespec most{.tv_sec = whole.count(),
                      .tv_nsec = std::chrono::nanoseconds(patience - whole).count()};
  // One that has ended already can't be watched: that comes as an event too.
  return ::kevent(queue.number(), &end, 1, &end, 1, &most) > 0;
}

}  // namespace quillmere
