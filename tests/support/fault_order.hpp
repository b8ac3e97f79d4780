// A test's order to the fault injector, in memory that it shares with the program under test.
#pragma once

#include <atomic>

namespace quillmere {

/// What can be made to fail.
enum class Call : int {
  none,
  /// Any size, any of the C functions, from the program's start on.
  allocate,
  connect,
  /// The outcome of a pending connect: `getsockopt` works and reports the error.
  connectOutcome,
  /// Except for standard input.
  fileStatus,
  getSocketOption,
  linkStatus,
  open,
  peek,
  pipe,
  poll,
  readAtPosition,
  /// From a file, or from anything else except standard input.
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

/// The environment variable that names the file with the `FaultOrder`.
inline constexpr auto faultOrderVariable = "QUILLMERE_FAULT_ORDER";

/// One fault. All zeros, as in a new file, mean none.
struct FaultOrder {
  /// Set last, and set to `none` first.
  std::atomic<Call> call;
  /// The error number. 0: the call works, but only on half of the bytes; a `poll` times out. -1: a
  /// transfer returns nothing, as at the end.
  std::atomic<int> error;
  /// How many calls work before the first failure, and how many then fail in a row.
  std::atomic<int> before;
  std::atomic<int> inARow;
  /// Besides the fault: whether each successful connect reports that it is still pending.
  std::atomic<bool> connectPends;
  /// How many calls there were and how many failed.
  std::atomic<int> calls;
  std::atomic<int> failed;
};

}  // namespace quillmere
