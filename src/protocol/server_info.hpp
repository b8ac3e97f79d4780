// What the server says about itself, word for word.
#pragma once

#include <array>
#include <string_view>

namespace quillmere {

inline constexpr std::string_view serverVersion = QUILLMERE_VERSION;

namespace Constants {

/// The MCP revisions that the server speaks, oldest first. Negotiation relies on the order.
inline constexpr std::array<std::string_view, 4> supportedProtocolVersions = {
    "2024-11-05", "2025-03-26", "2025-06-18", "2025-11-25"};

}  // namespace Constants

inline constexpr auto oldestProtocolVersion = Constants::supportedProtocolVersions.front();
inline constexpr auto newestProtocolVersion = Constants::supportedProtocolVersions.back();

}  // namespace quillmere
