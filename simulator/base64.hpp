// Bytes as text (RFC 4648, section 4: the standard alphabet, with padding).
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace quillmere::simulator {

/// Pure.
[[nodiscard]] std::string base64(std::string_view bytes);

/// The bytes that `text` encodes, or nothing if `base64` would not write it that way. Pure.
[[nodiscard]] std::optional<std::string> bytesOfBase64(std::string_view text);

}  // namespace quillmere::simulator
