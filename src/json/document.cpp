// The text is read by the events of a parser that unfolds nothing. Where a value's bytes are
// follows from the events alone: a cursor goes through the text beside the parser, from the end of
// one value over blanks, commas and colons to the first byte of the next.
#include "json/document.hpp"

#include <algorithm>
#include <boost/json/basic_parser_impl.hpp>
#include <cstring>
#include <string>
#include <utility>

#include "platform/text.hpp"

namespace quillmere {

namespace {

using Kind = JsonDocument::Kind;
using Token = JsonDocument::Token;

/// Turns the parser's events into tokens.
class TokenList {
 public:
  static constexpr std::size_t max_object_size = static_cast<std::size_t>(-1);
  static constexpr std::size_t max_array_size = static_cast<std::size_t>(-1);
  static constexpr std::size_t max_key_size = static_cast<std::size_t>(-1);
  static constexpr std::size_t max_string_size = static_cast<std::size_t>(-1);

  using Error = boost::json::error_code;
  using View = boost::json::string_view;

  void start(std::string_view wholeText) {
    // Small texts have a token for each ten bytes or so; for large ones the list grows, since most
    // of them are a single long string.
    static_cast<void>(tokens.room(std::min<std::size_t>(wholeText.size() / 8, 2'048) + 16));
    text = wholeText;
  }

  Buffer<Token> take() { return std::move(tokens); }
  /// Whether there are some between the values; what is after the last one does not count.
  [[nodiscard]] bool hasLineBreaks() const { return lineBreaks; }
  [[nodiscard]] bool hasBlanks() const { return blanks; }

  bool on_document_begin(Error&) { return true; }
  bool on_document_end(Error&) { return true; }
  bool on_object_begin(Error&) { return begin(Kind::object); }
  bool on_array_begin(Error&) { return begin(Kind::array); }
  bool on_object_end(std::size_t count, Error&) { return end(count); }
  bool on_array_end(std::size_t count, Error&) { return end(count); }

  bool on_key_part(View, std::size_t, Error&) { return true; }
  bool on_key(View rest, std::size_t size, Error&) { return string(rest, size); }
  bool on_string_part(View, std::size_t, Error&) { return true; }
  bool on_string(View rest, std::size_t size, Error&) { return string(rest, size); }

  bool on_number_part(View, Error&) { return true; }
  bool on_int64(std::int64_t, View digits, Error&) { return add(Kind::number, digits.size()); }
  bool on_uint64(std::uint64_t, View digits, Error&) { return add(Kind::number, digits.size()); }
  bool on_double(double, View digits, Error&) { return add(Kind::number, digits.size()); }

  bool on_bool(bool value, Error&) {
    return add(Kind::boolean, std::string_view(value ? "true" : "false").size());
  }
  bool on_null(Error&) { return add(Kind::null, std::string_view("null").size()); }
  bool on_comment_part(View, Error&) { return true; }
  bool on_comment(View, Error&) { return true; }

 private:
  /// Goes to the first byte of the next value, or to the bracket that ends an array or object.
  void skipToNext() {
    for (;; ++cursor) {
      const char c = text[cursor];
      if (c == ',' || c == ':') continue;
      if (c == ' ' || c == '\t') {
        blanks = true;
      } else if (c == '\n' || c == '\r') {
        lineBreaks = true;
      } else {
        return;
      }
    }
  }

  void push(Kind kind, std::size_t extent) { tokens.push(Token(kind, cursor, extent)); }

  bool add(Kind kind, std::size_t length) {
    skipToNext();
    push(kind, length);
    cursor += length;
    return true;
  }

  bool string(View rest, std::size_t size) {
    skipToNext();
    const char* const first = &text[cursor + 1];
    if (rest.data() == first) return add(Kind::plainString, size + quotes);

    // The parser gives a string with escapes in decoded pieces: where it ends is not known.
    const char* last = first;
    while (*last != '"') last += *last == '\\' ? 2 : 1;
    return add(Kind::escapedString, static_cast<std::size_t>(last - first) + quotes);
  }

  bool begin(Kind kind) {
    skipToNext();
    // Until its end is known the token remembers the one around it.
    push(kind, innermost);
    innermost = static_cast<std::uint32_t>(tokens.size() - 1);
    ++cursor;
    return true;
  }

  bool end(std::size_t count) {
    add(Kind::end, 1);
    tokens[tokens.size() - 1].extent = static_cast<std::uint32_t>(count);
    innermost = std::exchange(tokens[innermost].extent, static_cast<std::uint32_t>(tokens.size()));
    return true;
  }

  static constexpr std::size_t quotes = 2;

  std::string_view text;
  std::size_t cursor = 0;
  bool lineBreaks = false;
  bool blanks = false;
  Buffer<Token> tokens;
  std::uint32_t innermost = 0;
};

/// Writes each escaped slash as a slash; returns whether there were any. Takes any bytes: in a text
/// that is no JSON nothing becomes valid by this, since outside of strings neither form is.
bool unescapeSlashes(Bytes& bytes) {
  std::string_view left = viewOf(bytes);
  char* to = bytes.data();
  bool found = false;
  for (;;) {
    const std::size_t plain = std::min(left.find('\\'), left.size());
    // Until the first one everything is in its place already.
    if (found) std::memmove(to, left.data(), plain);
    to += plain;
    left.remove_prefix(plain);
    if (left.size() < 2) break;
    if (left[1] == '/') {
      found = true;
    } else {
      *to++ = '\\';
    }
    *to++ = left[1];
    left.remove_prefix(2);
  }
  if (!left.empty()) *to++ = left.front();
  bytes.shrink(static_cast<std::size_t>(to - bytes.data()));
  return found;
}

/// Takes out the white space between tokens.
void compact(Bytes& text, Buffer<Token>& tokens) {
  std::size_t from = 0;
  std::size_t to = 0;
  for (std::size_t i = 0; i < tokens.size(); ++i) {
    Token& token = tokens[i];
    for (; from < token.offset(); ++from) {
      if (text[from] == ',' || text[from] == ':') text[to++] = text[from];
    }
    const bool isBracket = token.isContainer() || token.kind() == Kind::end;
    const std::size_t length = isBracket ? 1 : token.extent;
    std::memmove(&text[to], &text[from], length);
    token = Token(token.kind(), to, token.extent);
    from += length;
    to += length;
  }
  text.shrink(to);
}

boost::json::parse_options limits() {
  boost::json::parse_options options;
  options.max_depth = maxJsonDepth;
  // The bytes are checked before, many at a time; the parser would do it one by one.
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
      first.isContainer() ? tokens[first.extent - 1].offset() + 1 : first.offset() + first.extent;
  return viewOf(text).substr(first.offset(), end - first.offset());
}

std::shared_ptr<const JsonDocument> parseJson(Bytes text) {
  if (text.size() > maxJsonBytes) throw notJson("too long");
  const bool hadSlashes = unescapeSlashes(text);
  if (!isUtf8(viewOf(text))) {
    throw JsonError(JsonError::Kind::notUtf8, "The text is not valid JSON: invalid UTF-8.");
  }

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
  if (parser.handler().hasLineBreaks() || (hadSlashes && parser.handler().hasBlanks())) {
    compact(text, tokens);
  }
  return std::make_shared<const JsonDocument>(std::move(text), std::move(tokens));
}

std::shared_ptr<const JsonDocument> parseJson(std::string_view text) {
  return parseJson(bytesOf(text));
}

}  // namespace quillmere
