// Hints for the AI, added to the answers of the list tools, so that it starts a session before it
// acts.
#pragma once

#include <string_view>

#include "platform/json_value.hpp"

namespace quillmere {

/// `payload`, the desktop app's answer to the tool called `name` with `arguments`, with what to do
/// next added to its `warnings`, behind those that it came with, and as `nextRecommendedTool`.
/// Other tools and failed calls get it back as it was. Pure; cannot fail.
[[nodiscard]] JsonObject addGuidance(std::string_view name, const JsonObject& arguments,
                                     JsonObject payload);

}  // namespace quillmere
