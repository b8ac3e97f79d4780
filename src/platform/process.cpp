#include "platform/process.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#ifdef __APPLE__
#include <crt_externs.h>
#endif

namespace quillmere {

void prepareProcess() {
  std::signal(SIGPIPE, SIG_IGN);
  for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (::fcntl(standard, F_GETFD) >= 0) continue;
    // The lowest free number is the one just found closed.
    static_cast<void>(::open("/dev/null", standard == STDERR_FILENO ? O_WRONLY : O_RDONLY));
  }
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
  ::_exit(0);
}

}  // namespace quillmere
