// Pictures in app responses.
#pragma once

#include <string_view>
#include <vector>

#include "json/value.hpp"

namespace quillmere {

/// A string of base64 (RFC 4648, section 4) that begins as a file of that kind does.
struct Picture {
  JsonValue base64;
  std::string_view mimeType;
};

/// The pictures in `value` at any depth, in the order of its text. A string that is base64 only in
/// part, or lacks its padding, does not count. Linear in the length of the text. Pure.
[[nodiscard]] std::vector<Picture> picturesIn(const JsonValue& value);

}  // namespace quillmere
