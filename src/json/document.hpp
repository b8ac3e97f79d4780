// An incoming JSON text, read once and in place.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string_view>

#include "json/value.hpp"
#include "platform/buffer.hpp"

namespace quillmere {

/// Deepest accepted nesting of arrays and objects. A deeper text fails to parse, so no text can
/// exhaust a stack.
inline constexpr std::size_t maxJsonDepth = 512;

/// Longest accepted text, in bytes: the largest offset that fits into a token.
inline constexpr unsigned offsetBits = 28;
inline constexpr std::size_t maxJsonBytes = (1U << offsetBits) - 1;

/// A failure of the JSON layer: text that is not JSON, or a value that can't be written as JSON.
/// `what()` is a fixed text and never echoes the input.
class JsonError : public std::runtime_error {
 public:
  enum class Kind { notUtf8, notJson };

  JsonError(Kind failureKind, const std::string& text)
      : std::runtime_error(text), kind(failureKind) {}

  const Kind kind;
};

/// One JSON text: its bytes, and a flat list of tokens that say where its values are. Immutable, so
/// that any number of threads may read it; shared by everything that refers to its bytes.
///
/// The tokens are in the order of the text. A value has one token; an array or an object has a
/// second one at its end. A member has the token of its key, a string, and those of its value.
class JsonDocument : public std::enable_shared_from_this<JsonDocument> {
 public:
  enum class Kind : std::uint8_t {
    null,
    boolean,
    number,
    /// A string whose characters are the bytes between its quotes.
    plainString,
    /// A string with an escape between its quotes.
    escapedString,
    array,
    object,
    /// The closing bracket of an array or object.
    end,
  };

  class Token {
   public:
    /// `tokenNumber` is what `length`, `next` or `count` returns.
    Token(Kind kind, std::size_t offset, std::size_t tokenNumber)
        : number(static_cast<std::uint32_t>(tokenNumber)),
          place(static_cast<std::uint32_t>(kind) << offsetBits |
                static_cast<std::uint32_t>(offset)) {}

    [[nodiscard]] Kind kind() const { return static_cast<Kind>(place >> offsetBits); }
    /// Where the value's first byte is in the text; for a string that is its opening quote.
    [[nodiscard]] std::size_t offset() const { return place & maxJsonBytes; }
    [[nodiscard]] bool isContainer() const {
      return kind() == Kind::array || kind() == Kind::object;
    }

    /// Length of the value's text in bytes; not for arrays and objects.
    [[nodiscard]] std::size_t length() const { return number; }
    /// For an array or object: index of the token after its end.
    [[nodiscard]] std::uint32_t next() const { return number; }
    /// For an end: number of elements or members before it.
    [[nodiscard]] std::uint32_t count() const { return number; }

    /// The same token at another place in the text.
    [[nodiscard]] Token movedTo(std::size_t offset) const { return {kind(), offset, number}; }

   private:
    /// One of the three above, depending on the kind.
    std::uint32_t number;
    std::uint32_t place;
  };
  static_assert(sizeof(Token) == 8);

  /// Made by `parseJson`.
  JsonDocument(Bytes textBytes, Buffer<Token> tokenList)
      : text(std::move(textBytes)), tokens(std::move(tokenList)) {}
  JsonDocument(const JsonDocument&) = delete;
  JsonDocument& operator=(const JsonDocument&) = delete;
  JsonDocument(JsonDocument&&) = delete;
  JsonDocument& operator=(JsonDocument&&) = delete;
  ~JsonDocument() = default;

  /// The value at the top: an array or an object.
  [[nodiscard]] JsonValue root() const { return {*this, 0}; }

  /// The object at the top, or one without members if there is an array instead.
  [[nodiscard]] JsonObject object() const { return root().asObject().value_or(JsonObject()); }

  [[nodiscard]] const Token& tokenAt(std::uint32_t token) const { return tokens[token]; }

  /// The token after the value that begins at `token`.
  [[nodiscard]] std::uint32_t next(std::uint32_t token) const {
    return tokens[token].isContainer() ? tokens[token].next() : token + 1;
  }

  /// The bytes of the value that begins at `token`.
  [[nodiscard]] std::string_view textOf(std::uint32_t token) const;

  /// The first byte after the quote of the string at `token`.
  [[nodiscard]] char firstByteOf(std::uint32_t token) const {
    return text[tokens[token].offset() + 1];
  }

  /// Whether the string at `token` is the key of a member.
  [[nodiscard]] bool isKey(std::uint32_t token) const;

 private:
  const Bytes text;
  const Buffer<Token> tokens;
};

/// Parses one UTF-8 JSON text, strictly by RFC 8259: only white space may follow it, and lone
/// surrogates and byte order marks are refused. The top must be an object or an array, and
/// exponents must fit 31 bits.
///
/// The document is compact: white space between tokens is removed, and an escaped slash becomes a
/// slash. All other bytes stay as they came, numbers and escapes included. So every value can be
/// sent unchanged. Pure. Throws `JsonError`, of the kind `notUtf8` for any text that is not UTF-8.
[[nodiscard]] std::shared_ptr<const JsonDocument> parseJson(Bytes text);
[[nodiscard]] std::shared_ptr<const JsonDocument> parseJson(std::string_view text);

}  // namespace quillmere
