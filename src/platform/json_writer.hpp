// JSON text out, in the two styles that the program writes.
#pragma once

#include <string>

#include "platform/json_value.hpp"

namespace quillmere {

/// The value as JSON text without white space, members in their order. Only what RFC 8259, section
/// 7 asks for is escaped: `/` and non-ASCII text stand as they are. Pure. Throws `JsonError` when a
/// string or key is not UTF-8.
[[nodiscard]] std::string compactJson(const JsonValue& value);
[[nodiscard]] std::string compactJson(const JsonObject& object);

/// The same text for people: one member a line, two blanks a level, keys sorted by their bytes.
[[nodiscard]] std::string indentedJson(const JsonObject& object);

}  // namespace quillmere
