#include <crt_externs.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/event.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>

#include "harness/system.hpp"

namespace quillmere {

namespace {

[[noreturn]] void fail(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
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

pid_t startProgram(std::vector<std::string> arguments, std::vector<std::string> environment,
                   int input, int output, bool /*diesWithParent*/) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  posix_spawn_file_actions_addinherit_np(&actions, STDERR_FILENO);
  sigset_t all;
  sigfillset(&all);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setsigdefault(&attributes, &all);
  // A descriptor is open for a moment before it is marked as closed on exec, and another thread may
  // start a program just then.
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_CLOEXEC_DEFAULT);
  pid_t child = -1;
  errno = ::posix_spawn(&child, arguments[0].c_str(), &actions, &attributes,
                        pointersTo(arguments).data(), pointersTo(environment).data());
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  if (errno != 0) fail(arguments[0].c_str());
  return child;
}

bool endsWithin(pid_t child, std::chrono::milliseconds most) {
  const Descriptor queue(::kqueue());
  struct kevent end {};
  EV_SET(&end, child, EVFILT_PROC, EV_ADD, NOTE_EXIT, 0, nullptr);
  const auto whole = std::chrono::duration_cast<std::chrono::seconds>(most);
  const timespec wait{.tv_sec = whole.count(),
                      .tv_nsec = std::chrono::nanoseconds(most - whole).count()};
  // One that has ended already can't be watched: that comes as an event too.
  return ::kevent(queue.number(), &end, 1, &end, 1, &wait) > 0;
}

}  // namespace quillmere
