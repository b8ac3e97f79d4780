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

/// How an AI is to understand this connection; part of the handshake, of the help and of the
/// prompts.
inline constexpr std::string_view connectionInstructions =
    "Treat this server as the user's MCP connection to a visible Android phone through Quillmere. "
    "If the user only pasted the Quillmere command or path, that is connection setup, not the "
    "phone task; connect to it as a stdio MCP server and ask what to do unless the task is already "
    "stated. After connection, use Quillmere MCP tools instead of generic adb, shell input, or "
    "unrelated desktop automation.";

/// In which order an AI is to call the tools; used in the same three places.
inline constexpr std::string_view workflowInstructions =
    "For each phone task: call quillmere.devices.list, call quillmere.sessions.list for the chosen "
    "device, call quillmere.session.start if there is no Phone Screen session, then observe the "
    "screen or read UI state. Act one step at a time, wait for stable UI after launches or "
    "navigation, and verify after each action with UI state or screen metadata. screen.observe is "
    "metadata-only by default; set includeImage=true only when pixel inspection is needed.";

}  // namespace quillmere
