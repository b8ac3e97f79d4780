// The elements of an array as the rows of a table: which columns they have, and where in the
// document each cell is.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "json/document.hpp"

namespace quillmere {

/// Reads one row at a time. Members of an object in a row are columns of their own. Valid as long
/// as the array's document; for one thread. Nothing here takes more than linear time.
class Rows {
 public:
  /// The index of a token.
  using Place = std::uint32_t;
  /// The document's first token is no cell.
  static constexpr Place missing = 0;
  static constexpr std::size_t mostColumns = 64;
  /// By the number of the column.
  using Cells = std::array<Place, mostColumns>;

  struct Column {
    std::size_t number;
    /// The keys that lead to it, with a dot between two of them.
    std::string path;
    /// How long the part before the last dot is; 0 if there is none.
    std::size_t parentSize;
  };

  explicit Rows(const JsonValue& array);

  [[nodiscard]] std::size_t count() const { return document.tokenAt(end()).count(); }
  [[nodiscard]] Place begin() const { return top + 1; }
  [[nodiscard]] Place end() const { return document.next(top) - 1; }
  [[nodiscard]] Place next(Place row) const { return document.next(row); }

  /// Reads a row, and adds the columns that no row before it had. Returns false if the row does not
  /// fit in with the others: then no other function may be called.
  [[nodiscard]] bool read(Place row);

  /// Remembers the row that was read last, which is at `row`, except for its cells in `varying`,
  /// which are column numbers in the order of the row.
  void remember(Place row, std::span<const std::size_t> varying);

  /// Reads a row that differs from the remembered one in the varying cells only; all else is
  /// compared at once. Only these cells are current then. Returns false for any other row.
  [[nodiscard]] bool readLikeRemembered(Place row);

  /// Of the row that was read last.
  [[nodiscard]] Place cell(std::size_t column) const { return current[column]; }
  [[nodiscard]] const Cells& cells() const { return current; }

  [[nodiscard]] std::size_t columnCount() const { return columns; }
  /// In the order of the members.
  [[nodiscard]] std::vector<Column> columnsInOrder() const;

  [[nodiscard]] bool isString(Place cell) const {
    return isPlainString(cell) || document.tokenAt(cell).kind() == Kind::escapedString;
  }
  [[nodiscard]] bool isPlainString(Place cell) const {
    return document.tokenAt(cell).kind() == Kind::plainString;
  }

  /// The JSON text of a cell. As the document's function, which can't be inlined.
  [[nodiscard]] std::string_view textOf(Place cell) const {
    const JsonDocument::Token& token = document.tokenAt(cell);
    return token.isContainer() ? document.textOf(cell)
                               : std::string_view(bytes + token.offset(), token.length());
  }

 private:
  using Kind = JsonDocument::Kind;

  /// A member of the rows, or of the objects in one.
  struct Member {
    /// As the document has it, with its quotes.
    std::string_view key;
    /// For values that are cells.
    std::size_t column = mostColumns;
    /// For values that are taken apart.
    std::vector<Member> members = {};
  };

  struct Remembered {
    struct Cell {
      std::size_t column;
      Place tokensBefore;
      std::string_view textBefore;
    };
    std::vector<Cell> cells;
    std::string_view end;
    /// None if no row is remembered.
    Place tokens = 0;
  };

  [[nodiscard]] bool readMembers(Place object, std::vector<Member>& level, unsigned depth);
  [[nodiscard]] static bool findMember(std::string_view key, std::vector<Member>& level,
                                       std::size_t& at);
  [[nodiscard]] bool isTakenApart(Place value, unsigned depth) const;
  [[nodiscard]] bool isFlat(Place container) const;
  [[nodiscard]] const char* endOf(Place row) const;
  static void appendColumns(std::vector<Column>& list, const std::vector<Member>& level,
                            const std::string& parent);

  const JsonDocument& document;
  /// The document's text.
  const char* const bytes;
  const Place top;
  std::vector<Member> members;
  std::size_t columns = 0;
  Cells current = {};
  Remembered remembered;
};

}  // namespace quillmere
