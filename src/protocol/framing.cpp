// A client sends messages as lines, or as bodies after header blocks, and may change from one to
// the other at any message. The first line of a message says which it is. So we read input line by
// line, and never past the end of the message.
#include "protocol/framing.hpp"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/process.hpp"
#include "platform/text.hpp"
#include "protocol/mcp_error.hpp"

namespace quillmere {

namespace {

constexpr std::string_view headerName = "content-length";
constexpr std::string_view whiteSpaceAndLineBreaks = "\t\n\v\f\r ";

std::string_view trimmedOf(std::string_view text, std::string_view unwanted) {
  const std::size_t first = text.find_first_not_of(unwanted);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(unwanted) - first + 1);
}

/// Whether a message's first line is a header: it starts with the name, directly followed by a
/// colon. JSON can't begin like that. We leave a line with bytes outside ASCII to the JSON parser,
/// which refuses it without waiting for the rest of a block.
bool startsHeaderBlock(std::string_view line) {
  const std::string start = asciiLowerCased(line.substr(0, headerName.size() + 1));
  return start.starts_with(headerName) && start.ends_with(':') && isAscii(line);
}

std::vector<Bytes> readHeaderBlock(StdinReader& reader, Bytes firstLine) {
  std::vector<Bytes> lines;
  lines.push_back(std::move(firstLine));
  for (;;) {
    auto line = reader.readLine(maxHeaderLineBytes);
    if (!line) throw errors::incompleteHeaders();
    if (viewOf(*line) == "\r\n" || viewOf(*line) == "\n") return lines;
    lines.push_back(std::move(*line));
    if (lines.size() > maxHeaderLines) throw errors::tooManyHeaders();
  }
}

/// A whole number with at most one sign before it, or nothing.
std::optional<std::int64_t> decimalInteger(std::string_view text) {
  // `from_chars` accepts a minus but not a plus.
  if (text.starts_with('+')) {
    text.remove_prefix(1);
    if (text.starts_with('-')) return std::nullopt;
  }
  std::int64_t number = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

/// The value of a `Content-Length` line, or nothing for any other line. As lenient as this server
/// has always been, since clients may rely on it: we ignore colons before the name, and
/// `Content-Length:` without a value does not count and does not replace an earlier line.
std::optional<std::string_view> contentLengthValue(std::string_view line) {
  line = trimmedOf(line, whiteSpaceAndLineBreaks);
  line.remove_prefix(std::min(line.find_first_not_of(':'), line.size()));
  const std::size_t colon = line.find(':');
  if (colon == std::string_view::npos || colon + 1 == line.size()) return std::nullopt;
  if (asciiLowerCased(line.substr(0, colon)) != headerName) return std::nullopt;
  return trimmedOf(line.substr(colon + 1), " \t");
}

/// Checks the block only after reading all of it, so that the next message starts after the block
/// even if this one is refused.
std::size_t bodyLength(const std::vector<Bytes>& headerLines) {
  std::optional<std::int64_t> length;
  for (const Bytes& bytes : headerLines) {
    const std::string_view line = viewOf(bytes);
    if (!isAscii(line)) throw errors::headerNotAscii();
    // The last match counts, even when its value is not a number: then there is no length.
    if (const auto value = contentLengthValue(line)) length = decimalInteger(*value);
  }
  if (!length) throw errors::missingContentLength();
  // All lengths that we do not accept get the same text.
  if (*length < 1 || *length > static_cast<std::int64_t>(maxBodyBytes)) {
    throw errors::messageTooLarge();
  }
  return static_cast<std::size_t>(*length);
}

}  // namespace

std::optional<Bytes> StdinReader::readLine(std::size_t maxBytes) {
  Bytes line;
  // We ask for one byte more than allowed, to tell a line that is too long from one that just fits.
  while (input.readSomeUntil('\n', maxBytes + 1 - line.size(), line)) {
    if (line.size() > maxBytes) throw errors::messageTooLarge();
    if (viewOf(line).back() == '\n') return line;
  }
  return line.empty() ? std::nullopt : std::optional(std::move(line));
}

Bytes StdinReader::readExact(std::size_t byteCount) {
  Bytes bytes;
  while (bytes.size() < byteCount) {
    if (!input.readSome(byteCount - bytes.size(), bytes)) throw errors::incompletePayload();
  }
  return bytes;
}

std::optional<Bytes> readNextPayload(StdinReader& reader, ServerState& state) {
  auto firstLine = reader.readLine(maxFirstLineBytes);
  if (!firstLine || !startsHeaderBlock(viewOf(*firstLine))) return firstLine;

  // Before checking the block, so that even an error about this block goes out in header framing.
  state.useContentLengthFraming();
  return reader.readExact(bodyLength(readHeaderBlock(reader, std::move(*firstLine))));
}

void MessageWriter::writeMessage(const JsonText& message) {
  // We prepare the pieces for both framings here, since we must not allocate while holding the
  // lock: `endAfterFrame` waits for it.
  const std::string header = "Content-Length: " + std::to_string(message.size()) + "\r\n\r\n";
  std::vector<std::string_view> pieces = message.pieces();
  pieces.insert(pieces.begin(), header);
  pieces.emplace_back("\n");
  const std::lock_guard hold(stdoutLock);
  // Drop the other framing's piece: the line feed of a framed message, or the header of a line.
  // Under the lock, so that no plain line follows a framed message of another thread.
  (state.usesContentLengthFraming() ? pieces.back() : pieces.front()) = {};
  if (!writeAll(output, std::move(pieces))) endProcess();
}

void MessageWriter::endAfterFrame() {
  stdoutLock.lock();
  endProcess();
}

}  // namespace quillmere
