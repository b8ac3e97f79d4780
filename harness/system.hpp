// System calls that Linux and macOS make differently.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

#include "platform/descriptor.hpp"

namespace quillmere {

/// The environment variable that gives a program that we start another home. The one for macOS is
/// read by the system's own libraries, never by the server.
#ifdef __APPLE__
inline constexpr const char* homeVariable = "CFFIXED_USER_HOME";
#else
inline constexpr const char* homeVariable = "HOME";
#endif

/// Two connected descriptors.
struct Channel {
  Descriptor readEnd;
  Descriptor writeEnd;
};
/// A pipe or a pair of connected sockets, close-on-exec. Both throw `std::system_error`.
[[nodiscard]] Channel makePipe();
[[nodiscard]] Channel makeSocketPair();

/// A blocking stream socket in the Unix domain, or the next connection to one that listens; closed
/// in programs that are started later. Not open, with `errno` set, when there is none.
[[nodiscard]] Descriptor makeUnixSocket();
[[nodiscard]] Descriptor acceptConnection(const Descriptor& listener);

/// The variables of this process, after the last of them a null pointer.
[[nodiscard]] char** environmentVariables();

/// Starts the program at `arguments[0]`, with these standard streams and no other descriptor but
/// standard error, and with all signals as they are by default: a signal that a parent of ours
/// ignores, such as SIGHUP under nohup, is not ignored by it. With `diesWithParent` it is killed,
/// on Linux, when the calling thread ends. Throws `std::system_error`.
[[nodiscard]] pid_t startProgram(std::vector<std::string> arguments,
                                 std::vector<std::string> environment, int input, int output,
                                 bool diesWithParent);

/// Whether `child`, a process that nobody has waited for yet, ends within `most`. Throws
/// `std::system_error` when the system can't watch it.
[[nodiscard]] bool endsWithin(pid_t child, std::chrono::milliseconds most);

}  // namespace quillmere
