// Random identifiers.
#pragma once

#include <string>

namespace quillmere {

/// A new random UUID (RFC 9562, version 4): 36 characters, upper-case hexadecimal digits.
/// Thread-safe.
[[nodiscard]] std::string randomUuid();

}  // namespace quillmere
