// The unit of the control socket, the same in both directions: a 4-byte big-endian length, then
// that many bytes of UTF-8 JSON text that hold one object.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace quillmere {

inline constexpr std::size_t controlPrefixBytes = 4;
/// Longest body that the server sends.
inline constexpr std::size_t maxControlRequestBytes = 1'048'576;
/// Longest body that the server accepts; the shortest has one byte.
inline constexpr std::size_t maxControlResponseBytes = 33'554'432;

/// Prefix and body in one buffer. `body` must be shorter than 4 GiB. Pure.
[[nodiscard]] std::string controlFrame(std::string_view body);

/// The length of the body, as announced by the prefix at the start of `frame`. Pure.
[[nodiscard]] std::uint32_t controlBodyLength(std::string_view frame);

}  // namespace quillmere
