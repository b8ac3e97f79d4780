// Standard input and output as the server needs them.
#pragma once

#include <cstddef>
#include <memory>
#include <string_view>
#include <vector>

#include "platform/buffer.hpp"
#include "platform/descriptor.hpp"

namespace quillmere {

/// Reads a descriptor and never takes a byte more than asked for: what comes after that stays in
/// the descriptor for whoever reads it next. To find a delimiter without a system call per byte it
/// looks ahead without consuming, where the descriptor allows that. One thread at a time.
class InputStream {
 public:
  /// Reads from `descriptor`, which stays the caller's and must outlive this.
  explicit InputStream(int descriptor);

  /// Appends at least one and at most `most` bytes to `to`, up to the first `delimiter` and none
  /// after it. Blocks for the first byte. Returns false, with `to` unchanged, at end of input and
  /// from then on; a descriptor that can't be read has ended. Throws `std::bad_alloc`, with nothing
  /// read.
  [[nodiscard]] bool readSomeUntil(char delimiter, std::size_t most, Bytes& to);

  /// The same without a delimiter.
  [[nodiscard]] bool readSome(std::size_t most, Bytes& to);

 private:
  /// How to see what comes next without consuming it.
  enum class LookAhead { peek, tee, position, none };

  LookAhead chooseMethod() const;
  /// Fills `seen` with what comes next, if any of it can be seen.
  void lookAhead();
  [[nodiscard]] long lookByPeek() const;
  [[nodiscard]] long lookByPosition() const;
  [[nodiscard]] long lookByTee() const;

  const int input;
  LookAhead method;
  /// Remembered, since a read after a failed one may succeed, in the middle of a message.
  bool hasEnded = false;
  /// Bytes seen but not yet consumed: a copy, in `lookAheadBuffer`. The descriptor has them too.
  std::string_view seen;
  std::unique_ptr<char[]> lookAheadBuffer;
  /// A pipe of our own, into which we duplicate a pipe's content to look at it.
  Descriptor duplicateIn;
  Descriptor duplicateOut;
};

/// Writes `pieces` one after the other to `descriptor`: in one system call if there are at most 64
/// and the descriptor takes them all at once. Blocks as long as it must. Allocates nothing. Returns
/// false when the descriptor can no longer be written to; for standard output that means that the
/// client is gone.
[[nodiscard]] bool writeAll(int descriptor, std::vector<std::string_view> pieces);

}  // namespace quillmere
