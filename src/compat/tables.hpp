// The text of a result: the summary, the app response, and tables for its lists.
#pragma once

#include <span>
#include <string_view>

#include "json/writer.hpp"

namespace quillmere {

/// A JSON string that says `summary` and `value`. Arrays of like objects are tables where that is
/// clearly shorter, and then a line tells the model how to read them; docs/tables.md has the
/// grammar. All else is compact JSON. Each string in `replaced`, which are some of those in `value`
/// in the order of its text, is written as the string in its place. As good as linear in the length
/// of the text. Throws `JsonError` when `summary` is not UTF-8.
[[nodiscard]] JsonText textForModel(std::string_view summary, const JsonValue& value,
                                    std::span<const JsonText::Replacement> replaced = {});

}  // namespace quillmere
