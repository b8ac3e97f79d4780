#include "server/program.hpp"

#include <unistd.h>

#include <algorithm>
#include <new>

#include "platform/memory.hpp"
#include "platform/process.hpp"
#include "server/command_line.hpp"
#include "server/server.hpp"

namespace quillmere {

int runProgram(int argumentCount, char** arguments, const Dialect& dialect) {
  prepareProcess();
  tuneAllocator();
  std::set_new_handler([] {
    if (!giveUpReserve()) endProcess();
  });

  // A program may be started without any arguments, not even its name.
  const auto first = static_cast<std::size_t>(std::min(argumentCount, 1));
  const auto count = static_cast<std::size_t>(argumentCount);
  if (const auto status = runCLI({arguments + first, count - first})) return *status;

  // Never freed, and no destructor runs below: workers may use it until the process is gone.
  static auto& server = *new Server(STDOUT_FILENO, dialect);
  // From here on a frame may be half written.
  std::set_new_handler([] {
    if (!giveUpReserve()) server.output.endAfterFrame();
  });
  serve(STDIN_FILENO, server);
  endProcess();
}

}  // namespace quillmere
