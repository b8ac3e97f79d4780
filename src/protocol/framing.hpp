// Messages on standard input and output, in two framings: one JSON text on one line, or a block of
// headers with a `Content-Length`, then a body of that size. A message's first line shows which.
#pragma once

#include <cstddef>
#include <mutex>
#include <optional>

#include "json/writer.hpp"
#include "platform/buffer.hpp"
#include "platform/standard_streams.hpp"
#include "protocol/server_state.hpp"

namespace quillmere {

/// Longest first line of a message and longest later header line, in bytes, line feed included.
inline constexpr std::size_t maxFirstLineBytes = 1'048'576;
inline constexpr std::size_t maxHeaderLineBytes = 8'192;
/// Most lines of a header block, without the blank one that ends it.
inline constexpr std::size_t maxHeaderLines = 32;
/// Longest body, in bytes. The shortest has one byte.
inline constexpr std::size_t maxBodyBytes = 1'048'576;

/// Lines and bodies from one descriptor, never a byte more than asked for. One thread at a time.
class StdinReader {
 public:
  /// Reads from `descriptor`, which stays the caller's and must outlive this.
  explicit StdinReader(int descriptor) : input(descriptor) {}

  /// The next line, with its line feed if it has one; nothing at end of input. Blocks. Throws
  /// `MCPError` -32600 after byte `maxBytes` + 1 of a longer line and leaves the rest unread.
  [[nodiscard]] std::optional<Bytes> readLine(std::size_t maxBytes);

  /// Exactly `byteCount` bytes. Blocks. Throws `MCPError` -32700 when input ends before.
  [[nodiscard]] Bytes readExact(std::size_t byteCount);

 private:
  InputStream input;
};

/// Reads one message, in whichever framing its first line asks for; nothing at end of input. A
/// message in header framing turns that framing on in `state`, for all output from then on. Blocks;
/// main thread only. Throws `MCPError` -32600 (too large) or -32700 (broken header block); the next
/// call then starts a new message after the last byte consumed. After `std::bad_alloc` the start of
/// the next message is unknown.
[[nodiscard]] std::optional<Bytes> readNextPayload(StdinReader& reader, ServerState& state);

/// The only way to standard output once the server runs.
class MessageWriter {
 public:
  MessageWriter(int descriptor, const ServerState& serverState)
      : output(descriptor), state(serverState) {}

  /// Writes one whole JSON-RPC message as one frame, in the framing that `state` requires.
  /// Thread-safe; frames never mix. Blocks while the client does not read. When the client is gone,
  /// ends the process and does not return. Throws `std::bad_alloc`, with nothing written.
  void writeMessage(const JsonText& message);

  /// Ends the process, as `endProcess` does, but not in the middle of a frame. Thread-safe.
  [[noreturn]] void endAfterFrame();

 private:
  const int output;
  const ServerState& state;
  std::mutex stdoutLock;
};

}  // namespace quillmere
