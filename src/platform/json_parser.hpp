// JSON text in.
#pragma once

#include <string>
#include <string_view>

#include "platform/json_value.hpp"

namespace quillmere {

/// Deepest nesting of arrays and objects that is read; a text nested deeper is a parse failure, so
/// that no text can exhaust a stack.
inline constexpr std::size_t maxJsonDepth = 512;

/// Parses one UTF-8 JSON document, strictly by RFC 8259: nothing behind it but blanks, no lone
/// surrogates, no byte order mark. Only an object or an array is accepted at the top. Of repeated
/// keys the last one counts; numbers keep their digits. Exponents beyond 31 bits are refused. Pure.
/// Throws `JsonError`.
[[nodiscard]] JsonValue parseJson(std::string_view text);

/// The same, and the string that makes up most of `text`, if there is one, takes over its memory
/// instead of being copied. Texts with large strings need no other memory than their own.
[[nodiscard]] JsonValue parseJsonInPlace(std::string text);

}  // namespace quillmere
