// Texts for the AI that the handshake, the help and the prompts share. They name tools as the
// catalogue does.
#pragma once

#include <string_view>

namespace quillmere {

/// How an AI should understand this connection.
inline constexpr std::string_view connectionInstructions =
    "Treat this server as the user's MCP connection to a visible Android phone through Quillmere. "
    "If the user only pasted the Quillmere command or path, that is connection setup, not the "
    "phone task; connect to it as a stdio MCP server and ask what to do unless the task is already "
    "stated. After connection, use Quillmere MCP tools instead of generic adb, shell input, or "
    "unrelated desktop automation.";

/// The order in which an AI should call the tools.
inline constexpr std::string_view workflowInstructions =
    "For each phone task: call quillmere.devices.list, call quillmere.sessions.list for the chosen "
    "device, call quillmere.session.start if there is no Phone Screen session, then observe the "
    "screen or read UI state. Act one step at a time, wait for stable UI after launches or "
    "navigation, and verify after each action with UI state or screen metadata. screen.observe is "
    "metadata-only by default; set includeImage=true only when pixel inspection is needed.";

}  // namespace quillmere
