// Texts: UTF-8, what the program needs of Unicode, and lists of texts. All functions are pure. They
// take any bytes unless they require UTF-8.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace quillmere {

/// Whether the bytes are UTF-8 as RFC 3629 defines it: no surrogates, no overlong forms, nothing
/// past U+10FFFF.
[[nodiscard]] bool isUtf8(std::string_view text);

/// Adds the UTF-8 form of `character`, a Unicode scalar value, to `text`.
void appendUtf8(std::string& text, char32_t character);

/// Length in bytes, 1 to 4, of the UTF-8 character at the start of `text`, or 0 if there is none.
[[nodiscard]] std::size_t utf8CharacterLength(std::string_view text);

/// `text` with each byte that is not part of a UTF-8 character replaced by U+FFFD.
[[nodiscard]] std::string withUtf8Repaired(std::string_view text);

/// The texts joined by `separator`.
[[nodiscard]] std::string joined(std::span<const std::string_view> texts,
                                 std::string_view separator);

/// Whether every byte is below 0x80.
[[nodiscard]] bool isAscii(std::string_view text);

/// `text` with A to Z changed to a to z and every other byte unchanged.
[[nodiscard]] std::string asciiLowerCased(std::string_view text);

/// `text` without white space and line breaks at both ends: general category Z, U+0009 to U+000D
/// and U+0085. `text` must be UTF-8.
[[nodiscard]] std::string_view trimmed(std::string_view text);

/// `text` in lower case, character by character, by the mappings of the Unicode Character Database
/// that do not depend on neighbouring characters (U+0130 becomes U+0069 U+0307). `text` must be
/// UTF-8.
[[nodiscard]] std::string lowerCased(std::string_view text);

/// Whether `text` has more user-perceived characters (extended grapheme clusters, UAX #29) than
/// `count`. Stops counting as soon as it knows. `text` must be UTF-8.
[[nodiscard]] bool hasMoreCharactersThan(std::string_view text, std::size_t count);

/// Whether `text` is one of `texts`.
[[nodiscard]] bool contains(std::span<const std::string_view> texts, std::string_view text);

}  // namespace quillmere
