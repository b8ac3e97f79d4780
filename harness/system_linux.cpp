#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>

#include "harness/system.hpp"

/// The C library's `clone` under its other name: ThreadSanitizer puts one of its own in the place
/// of the usual one, which takes this for a fork and lets no thread be started after it.
// NOLINTNEXTLINE(bugprone-reserved-identifier)
extern "C" int __clone(int (*function)(void*), void* stack, int flags, void* argument, ...);

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

/// What a child needs to become a program.
struct LaunchRequest {
  char* const* arguments;
  char* const* environment;
  int input;
  int output;
  bool diesWithParent;
  /// Set by the child when it can't.
  int error = 0;
};

/// The child's part. It runs in the parent's memory, where a sanitizer would take it for the
/// parent.
__attribute__((no_sanitize("address", "thread", "undefined"))) int becomeProgram(void* of) {
  LaunchRequest& child = *static_cast<LaunchRequest*>(of);
  if (child.diesWithParent) ::syscall(SYS_prctl, PR_SET_PDEATHSIG, SIGKILL, 0, 0, 0);
  for (int signal = 1; signal < NSIG; ++signal) {
    // Not by the library's function, which sanitizers replace. The structure is the kernel's: a
    // handler of null, which is the default, and no flags.
    constexpr std::size_t maskBytes = 8;
    constexpr std::array<unsigned long, 4> byDefault{};
    ::syscall(SYS_rt_sigaction, signal, byDefault.data(), nullptr, maskBytes);
  }
  ::syscall(SYS_dup2, child.input, STDIN_FILENO);
  ::syscall(SYS_dup2, child.output, STDOUT_FILENO);
  ::syscall(SYS_execve, child.arguments[0], child.arguments, child.environment);
  child.error = errno;
  ::syscall(SYS_exit, 127);
  return 127;
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

pid_t startProgram(std::vector<std::string> arguments, std::vector<std::string> environment,
                   int input, int output, bool diesWithParent) {
  const std::vector<char*> argumentPointers = pointersTo(arguments);
  const std::vector<char*> environmentPointers = pointersTo(environment);
  LaunchRequest request{argumentPointers.data(), environmentPointers.data(), input, output,
                        diesWithParent};
  // In our own memory, as `posix_spawn` does it, which can't tie the child to our life. A fork
  // would copy our page tables at each start, and benchmarks measure starts.
  alignas(16) std::array<char, 16'384> stack;
  const pid_t child = ::__clone(becomeProgram, stack.data() + stack.size(),
                                CLONE_VM | CLONE_VFORK | SIGCHLD, &request);
  if (child < 0) fail("clone");
  if (request.error == 0) return child;
  ::waitpid(child, nullptr, 0);
  errno = request.error;
  fail(arguments[0].c_str());
}

bool endsWithin(pid_t child, std::chrono::milliseconds most) {
  // A descriptor of the process turns readable when it ends: no polling, no signal handler.
  const Descriptor process(static_cast<int>(::syscall(SYS_pidfd_open, child, 0)));
  if (!process.isOpen()) fail("pidfd_open");
  pollfd entry{.fd = process.number(), .events = POLLIN, .revents = 0};
  const int ready = ::poll(&entry, 1, static_cast<int>(most.count()));
  if (ready < 0) fail("poll");
  return ready > 0;
}

}  // namespace quillmere
