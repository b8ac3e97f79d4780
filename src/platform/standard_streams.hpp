// Standard input and output as the server needs them.
#pragma once

#include <cstddef>
#include <memory>
#include <string_view>
#include <vector>

#include "platform/buffer.hpp"
#include "platform/descriptor.hpp"

namespace quillmere {

/// Reads a descriptor and never takes a byte more than it is asked for: what comes after that stays
/// in the descriptor for whoever reads it next. To find a delimiter without a system call a byte it
/// looks ahead without consuming, where the descriptor allows it. One thread at a time.
class InputStream {
 public:
  /// Reads from `descriptor`, which stays the caller's and must outlive this.
  explicit InputStream(int descriptor);

  /// Appends at least one and at most `most` bytes to `to`, none of them after the first
  /// `delimiter`. Blocks for the first byte. Returns false, with `to` unchanged, at end of input,
  /// and from then on. A descriptor that can't be read counts as ended. Throws `std::bad_alloc`,
  /// with nothing read.
  [[nodiscard]] bool readThrough(char delimiter, std::size_t most, Bytes& to);

  /// The same without a delimiter.
  [[nodiscard]] bool read(std::size_t most, Bytes& to);

 private:
  /// How to see what comes next without consuming it.
  enum class LookAhead { peek, tee, position, none };

  LookAhead wayToLookAhead() const;
  /// Fills `ahead` with what comes next, if anything can be seen of it.
  void fillAhead();
  [[nodiscard]] long peekAhead() const;
  [[nodiscard]] long positionAhead() const;
  [[nodiscard]] long teeAhead() const;

  const int input;
  LookAhead way;
  /// Kept, since a read after a failed one may work again, in the middle of a message.
  bool hasEnded = false;
  /// Bytes that were seen and not yet consumed. A copy, in `aheadBuffer`: they are still in the
  /// descriptor too.
  std::string_view ahead;
  std::unique_ptr<char[]> aheadBuffer;
  /// A pipe of our own, into which a pipe's content is duplicated to be seen.
  Descriptor duplicateIn;
  Descriptor duplicateOut;
};

/// Writes `pieces` one after the other to `descriptor`: in one system call, if they are at most
/// 64 and the descriptor takes them all at a time. Waits as long as it must. Takes no memory.
/// Returns false when it can't be written to any more, which on standard output means that the
/// client is gone.
[[nodiscard]] bool writeAll(int descriptor, std::vector<std::string_view> pieces);

}  // namespace quillmere
