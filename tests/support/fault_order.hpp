// What a test orders the fault injector to do, in memory that it shares with the program under
// test.
#pragma once

#include <atomic>

namespace quillmere {

/// What can be made to fail.
enum class Call : int {
  none,
  /// Of any size, by any of the C functions for it, from the program's start on.
  allocate,
  connect,
  /// How one that was still under way has ended: `getsockopt` works and tells of the error.
  connectOutcome,
  /// Of anything but standard input.
  fileStatus,
  getSocketOption,
  linkStatus,
  open,
  peek,
  pipe,
  poll,
  readAtPosition,
  /// From a file, and from anything else, but standard input.
  readFile,
  readElsewhere,
  readInput,
  receive,
  send,
  socket,
  startThread,
  tee,
  write,
};

/// Where the injector finds the name of the file that holds a `FaultOrder`.
inline constexpr auto faultOrderVariable = "QUILLMERE_FAULT_ORDER";

/// One fault. Zeros, as in a new file, order none.
struct FaultOrder {
  /// Set last, and set to `none` first.
  std::atomic<Call> call;
  /// The error number. 0: the call works, but on half of what it is asked for; a `poll` times out.
  /// -1: a transfer gives nothing, as at the end.
  std::atomic<int> error;
  /// How many calls work before the first that fails, and how many then fail in a row.
  std::atomic<int> before;
  std::atomic<int> inARow;
  /// Beside the fault: whether each connect that works says that it is still under way.
  std::atomic<bool> connectPends;
  /// How many calls there were, and how many of them failed.
  std::atomic<int> calls;
  std::atomic<int> failed;
};

}  // namespace quillmere
