#include "platform/process.hpp"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#ifdef __APPLE__
#include <crt_externs.h>
#endif

namespace quillmere {

namespace {

/// The soft limit protects programs that use `select`, which takes no descriptor above 1,023. We do
/// not use it, and each running call needs a descriptor.
void raiseDescriptorLimit() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  rlim_t most = limit.rlim_max;
#ifdef __APPLE__
  // macOS reports "unlimited" here, but refuses to set that.
  most = std::min(most, rlim_t{OPEN_MAX});
#endif
  if (limit.rlim_cur >= most) return;
  limit.rlim_cur = most;
  // If this fails, fewer calls can run at a time; nothing else changes.
  static_cast<void>(::setrlimit(RLIMIT_NOFILE, &limit));
}

}  // namespace

void prepareProcess() {
  raiseDescriptorLimit();
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
}

std::string_view argumentZero() {
#ifdef __APPLE__
  const char* const* arguments = *_NSGetArgv();
  return arguments[0] == nullptr ? "" : arguments[0];
#else
  return program_invocation_name == nullptr ? "" : program_invocation_name;
#endif
}

void endProcess() {
  // Runs no exit handlers or destructors: workers may still use what those would destroy. We buffer
  // no output, so nothing is lost.
  ::_exit(0);
}

}  // namespace quillmere
