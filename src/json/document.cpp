// The parser reports events and builds no tree; each event becomes a token. It would decode strings
// with escapes byte by byte, so before it reads a text we replace the bytes that make an escape by
// bytes that no UTF-8 text has; to the parser these are plain characters. So it reports all strings
// and numbers as views of the text. A cursor finds every other token: it starts at the end of the
// previous one and skips blanks, commas and colons.
#include "json/document.hpp"

#include <algorithm>
#include <array>
#include <boost/json/basic_parser_impl.hpp>
#include <charconv>
#include <cstring>
#include <optional>
#include <string>
#include <utility>

#include "platform/text.hpp"

namespace quillmere {

namespace {

using Kind = JsonDocument::Kind;
using Token = JsonDocument::Token;

// What a backslash at the start of an escape is replaced by, and a quote or backslash after it.
constexpr char hiddenBackslash = '\xFF';
constexpr char hiddenQuote = '\xFE';
constexpr char hiddenSecondBackslash = '\xFD';

/// For each byte after a backslash that ends an escape with it: what it is replaced by; 0 for all
/// others.
constexpr auto hiddenLetters = [] {
  std::array<char, 256> letters{};
  for (const char letter : {'b', 'f', 'n', 'r', 't'}) {
    letters[static_cast<unsigned char>(letter)] = letter;
  }
  letters['"'] = hiddenQuote;
  letters['\\'] = hiddenSecondBackslash;
  return letters;
}();

/// Turns the parser's events into tokens. The names of its functions and limits are the parser's.
class TokenList {
 public:
  // The only limit is the one on the whole text.
  static constexpr std::size_t max_object_size = static_cast<std::size_t>(-1);
  static constexpr std::size_t max_array_size = static_cast<std::size_t>(-1);
  static constexpr std::size_t max_key_size = static_cast<std::size_t>(-1);
  static constexpr std::size_t max_string_size = static_cast<std::size_t>(-1);

  using Error = boost::json::error_code;
  using View = boost::json::string_view;

  void start(std::string_view wholeText) {
    // Small texts have about one token per ten bytes. Most large ones are a single long string, so
    // their list starts small and grows if it must.
    static_cast<void>(tokens.room(std::min<std::size_t>(wholeText.size() / 8, 2'048) + 16));
    text = wholeText;
    nextEscape = text.find(hiddenBackslash);
  }

  Buffer<Token> take() { return std::move(tokens); }
  /// How long the text would be without white space between its tokens.
  [[nodiscard]] std::size_t compactSize() const { return tokenBytes + separators; }

  bool on_document_begin(Error&) { return true; }
  bool on_document_end(Error&) { return true; }
  bool on_object_begin(Error&) { return begin(Kind::object); }
  bool on_array_begin(Error&) { return begin(Kind::array); }
  bool on_object_end(std::size_t count, Error&) {
    // A colon for each member; `end` counts the commas.
    separators += count;
    return end(count);
  }
  bool on_array_end(std::size_t count, Error&) { return end(count); }

  bool on_key_part(View, std::size_t, Error&) { return true; }
  bool on_key(View characters, std::size_t, Error&) { return string(characters); }
  bool on_string_part(View, std::size_t, Error&) { return true; }
  bool on_string(View characters, std::size_t, Error&) { return string(characters); }

  bool on_number_part(View, Error&) { return true; }
  bool on_int64(std::int64_t, View digits, Error&) {
    return addAt(offsetOf(digits), Kind::number, digits.size());
  }
  bool on_uint64(std::uint64_t, View digits, Error&) {
    return addAt(offsetOf(digits), Kind::number, digits.size());
  }
  bool on_double(double, View digits, Error&) {
    return addAt(offsetOf(digits), Kind::number, digits.size());
  }

  bool on_bool(bool value, Error&) {
    return add(Kind::boolean, std::string_view(value ? "true" : "false").size());
  }
  bool on_null(Error&) { return add(Kind::null, std::string_view("null").size()); }
  bool on_comment_part(View, Error&) { return true; }
  bool on_comment(View, Error&) { return true; }

 private:
  /// Moves to the first byte of the next value, or to the bracket that ends an array or object.
  void skipToNext() {
    for (;; ++cursor) {
      const char c = text[cursor];
      if (c != ',' && c != ':' && c != ' ' && c != '\n' && c != '\r' && c != '\t') return;
    }
  }

  bool add(Kind kind, std::size_t length) {
    skipToNext();
    return addAt(cursor, kind, length);
  }

  bool addAt(std::size_t offset, Kind kind, std::size_t length) {
    tokens.push(Token(kind, offset, length));
    tokenBytes += length;
    cursor = offset + length;
    return true;
  }

  /// Where a view of the text begins; past the text's end for a view of anything else.
  [[nodiscard]] std::size_t offsetOf(View part) const {
    return reinterpret_cast<std::uintptr_t>(part.data()) -
           reinterpret_cast<std::uintptr_t>(text.data());
  }

  bool string(View characters) {
    const std::size_t offset = offsetOf(characters);
    const std::size_t end = offset + characters.size();
    const bool isEscaped = nextEscape < end;
    if (isEscaped) nextEscape = text.find(hiddenBackslash, end);
    return addAt(offset - 1, isEscaped ? Kind::escapedString : Kind::plainString,
                 characters.size() + quotes);
  }

  bool begin(Kind kind) {
    add(kind, 1);
    // Until we know its end, its number is the token of the enclosing value.
    const auto place = static_cast<std::uint32_t>(tokens.size() - 1);
    tokens[place] = Token(kind, tokens[place].offset(), std::exchange(innermost, place));
    return true;
  }

  bool end(std::size_t count) {
    if (count > 0) separators += count - 1;
    add(Kind::end, 1);
    Token& last = tokens[tokens.size() - 1];
    last = Token(Kind::end, last.offset(), count);
    Token& first = tokens[innermost];
    innermost = first.next();
    first = Token(first.kind(), first.offset(), tokens.size());
    return true;
  }

  static constexpr std::size_t quotes = 2;

  std::string_view text;
  std::size_t nextEscape = 0;
  std::size_t cursor = 0;
  std::size_t tokenBytes = 0;
  std::size_t separators = 0;
  Buffer<Token> tokens;
  std::uint32_t innermost = 0;
};

/// The number that the four hexadecimal digits at `at` in `text` make, or nothing.
std::optional<unsigned> hexadecimal(std::string_view text, std::size_t at) {
  constexpr std::size_t digits = 4;
  if (text.size() < at + digits) return std::nullopt;
  unsigned number = 0;
  const char* const end = text.data() + at + digits;
  const auto [stop, error] = std::from_chars(text.data() + at, end, number, 16);
  return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

/// Whether `text` begins with an escape of four digits, or two of them that make a surrogate pair
/// (RFC 8259, section 7), and the length of that; else 0.
std::size_t numericEscapeLength(std::string_view text) {
  constexpr std::size_t length = 6;
  if (!text.starts_with("\\u")) return 0;
  const auto unit = hexadecimal(text, 2);
  if (!unit) return 0;
  if (*unit < 0xD800 || *unit > 0xDFFF) return length;
  const auto low = text.substr(length).starts_with("\\u") ? hexadecimal(text, length + 2) : unit;
  return *unit < 0xDC00 && low >= 0xDC00 && low <= 0xDFFF ? 2 * length : 0;
}

/// Hides all valid escapes, and writes each escaped slash as a slash: the desktop app's writer
/// escapes all of them, and a screenshot in base64 is full of them. It does not check whether a
/// backslash is inside a string: outside strings neither form is valid, so no invalid text becomes
/// valid. Other escapes stay, for the parser to report. Returns whether any is hidden.
bool hideEscapes(Bytes& bytes) {
  const char* from = bytes.data();
  const char* const end = from + bytes.size();
  char* to = bytes.data();
  bool found = false;
  const auto take = [&](std::size_t count) {
    // Up to the first slash everything is already in its place.
    if (to != from) std::memmove(to, from, count);
    to += count;
    from += count;
  };
  while (from != end) {
    // Escapes often come in runs, where there is nothing to search for.
    if (*from != '\\') {
      const std::string_view left(from, static_cast<std::size_t>(end - from));
      take(std::min(left.find('\\'), left.size()));
      continue;
    }
    if (end - from == 1) {
      take(1);
    } else if (const char letter = hiddenLetters[static_cast<unsigned char>(from[1])]) {
      *to++ = hiddenBackslash;
      *to++ = letter;
      from += 2;
      found = true;
    } else if (from[1] == '/') {
      ++from;
      take(1);
    } else {
      const std::size_t length = numericEscapeLength({from, static_cast<std::size_t>(end - from)});
      char* const escape = to;
      take(std::max<std::size_t>(length, 2));
      for (std::size_t i = 0; i < length; i += 6) escape[i] = hiddenBackslash;
      found = found || length > 0;
    }
  }
  bytes.shrink(static_cast<std::size_t>(to - bytes.data()));
  return found;
}

/// Undoes what `hideEscapes` has hidden. The compiler turns the loop into vector code.
void showEscapes(Bytes& bytes) {
  char* const end = bytes.data() + bytes.size();
  for (char* at = bytes.data(); at != end; ++at) {
    const char c = *at;
    const char backslashOrSame = c == hiddenBackslash || c == hiddenSecondBackslash ? '\\' : c;
    *at = c == hiddenQuote ? '"' : backslashOrSame;
  }
}

/// Removes the white space between tokens, from left to right: a token only ever moves left, over
/// bytes that have already been moved.
void compact(Bytes& text, Buffer<Token>& tokens) {
  std::size_t from = 0;
  std::size_t to = 0;
  for (std::size_t i = 0; i < tokens.size(); ++i) {
    Token& token = tokens[i];
    // Commas and colons have no tokens.
    for (; from < token.offset(); ++from) {
      if (text[from] == ',' || text[from] == ':') text[to++] = text[from];
    }
    const bool isBracket = token.isContainer() || token.kind() == Kind::end;
    const std::size_t length = isBracket ? 1 : token.length();
    std::memmove(&text[to], &text[from], length);
    token = token.movedTo(to);
    from += length;
    to += length;
  }
  text.shrink(to);
}

boost::json::parse_options limits() {
  boost::json::parse_options options;
  options.max_depth = maxJsonDepth;
  // We have checked the bytes already, many at a time; the parser would check them one by one.
  options.allow_invalid_utf8 = true;
  return options;
}

JsonError notJson(const std::string& why) {
  return {JsonError::Kind::notJson, "The text is not valid JSON: " + why + "."};
}

}  // namespace

std::string_view JsonDocument::textOf(std::uint32_t token) const {
  const Token& first = tokens[token];
  const std::size_t end =
      first.isContainer() ? tokens[first.next() - 1].offset() + 1 : first.offset() + first.length();
  return viewOf(text).substr(first.offset(), end - first.offset());
}

bool JsonDocument::isKey(std::uint32_t token) const {
  // Only a key has a colon after it, and there is a token after each string.
  return text[tokens[token].offset() + tokens[token].length()] == ':';
}

std::shared_ptr<const JsonDocument> parseJson(Bytes text) {
  if (text.size() > maxJsonBytes) throw notJson("too long");
  if (!isUtf8(viewOf(text))) {
    throw JsonError(JsonError::Kind::notUtf8, "The text is not valid JSON: invalid UTF-8.");
  }
  const bool hasEscapes = hideEscapes(text);

  boost::json::basic_parser<TokenList> parser(limits());
  parser.handler().start(viewOf(text));
  boost::json::error_code error;
  const std::size_t used = parser.write_some(false, text.data(), text.size(), error);
  if (!error && used < text.size()) error = boost::json::error::extra_data;
  if (error) throw notJson(error.message());

  Buffer<Token> tokens = parser.handler().take();
  if (!tokens[0].isContainer()) {
    throw notJson("neither an object nor an array at top level");
  }
  // No token refers to what comes after the last one, so that may stay.
  const std::size_t end = tokens[tokens.size() - 1].offset() + 1;
  if (end > parser.handler().compactSize()) compact(text, tokens);
  if (hasEscapes) showEscapes(text);
  return std::make_shared<const JsonDocument>(std::move(text), std::move(tokens));
}

std::shared_ptr<const JsonDocument> parseJson(std::string_view text) {
  return parseJson(bytesOf(text));
}

}  // namespace quillmere
