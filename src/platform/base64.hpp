// Bytes as text (RFC 4648, section 4: the standard alphabet, with padding).
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace quillmere {

/// Pure.
[[nodiscard]] std::string base64(std::string_view bytes);

/// The bytes that `text` encodes, or nothing if `base64` would not write it that way. Pure.
[[nodiscard]] std::optional<std::string> bytesOfBase64(std::string_view text);

/// The bytes that a text encodes, one piece after the other, so that nobody needs to hold all of
/// them. One thread at a time.
class Base64Reader {
 public:
  /// `base64` must outlive the reader.
  explicit Base64Reader(std::string_view base64) : text(base64) {}

  /// Writes the next bytes into `to` and returns how many: fewer than there is room for only at the
  /// end, which is the padding or the first other character that is not of the alphabet.
  std::size_t read(std::span<unsigned char> to) noexcept;

 private:
  std::string_view text;
  /// The last `bitCount` of these have been read and not been handed out.
  std::uint32_t bits = 0;
  unsigned bitCount = 0;
};

}  // namespace quillmere
