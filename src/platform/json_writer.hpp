// JSON text out, in the two styles that the program writes.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/json_value.hpp"

namespace quillmere {

/// The value as JSON text without white space, members in their order. Only what RFC 8259, section
/// 7 asks for is escaped: `/` and non-ASCII text stand as they are. Pure. Throws `JsonError` when a
/// string or key is not UTF-8.
[[nodiscard]] std::string compactJson(const JsonValue& value);
[[nodiscard]] std::string compactJson(const JsonObject& object);

/// A run of text that stays where it is, and the place in the copied text that it belongs to.
struct BorrowedRun {
  std::size_t at;
  std::string_view run;
};

/// The same text in pieces, to be written one behind the other: what is long in it and needs no
/// escape is not copied. Not to be copied or moved itself.
class JsonText {
 public:
  /// So long that the largest message has fewer pieces than one system call takes.
  static constexpr std::size_t longPieceBytes = 131'072;

  /// `object` must outlive this, unchanged. Runs of at least `shortestBorrowed` bytes stay where
  /// they are in it. Throws `JsonError` when a string or key is not UTF-8.
  explicit JsonText(const JsonObject& object, std::size_t shortestBorrowed = longPieceBytes);
  JsonText(const JsonText&) = delete;
  JsonText& operator=(const JsonText&) = delete;
  ~JsonText() = default;

  /// In bytes.
  [[nodiscard]] std::size_t size() const;
  /// Views into this and into the object.
  [[nodiscard]] std::vector<std::string_view> pieces() const&;
  std::vector<std::string_view> pieces() const&& = delete;

 private:
  std::string copied;
  std::vector<BorrowedRun> borrowed;
};

/// The same text for people: one member a line, two blanks a level, keys sorted by their bytes.
[[nodiscard]] std::string indentedJson(const JsonObject& object);

}  // namespace quillmere
