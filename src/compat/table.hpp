// An array of like objects as a table. docs/tables.md has the grammar.
#pragma once

#include <bitset>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "json/writer.hpp"

namespace quillmere {

/// What the heading says of a column, so that it need not be in each row.
enum class TableForm { cells, sameInAllRows, usualValue, prefix };

/// The forms that a table uses, by their numbers.
using TableForms = std::bitset<4>;

/// Adds a line feed and `array` as the table called `name` to `text`, if that takes at most
/// `mostBytes`. Each string in `replaced`, which are those in `array` in the order of its text, is
/// written as the string in its place. No row begins with `@`.
///
/// Returns nothing, and leaves `text` as it was, if the table would be longer, or if the elements
/// are too unlike or too deep for one. Linear in the length of the array's text.
[[nodiscard]] std::optional<TableForms> appendTable(std::string& text, std::string_view name,
                                                    const JsonValue& array,
                                                    std::span<const JsonText::Replacement> replaced,
                                                    std::size_t mostBytes);

}  // namespace quillmere
