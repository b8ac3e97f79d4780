// The methods `prompts/list` and `prompts/get`: ready-made first messages for a phone task.
#pragma once

#include "json/writer.hpp"

namespace quillmere {

/// The entries of `prompts/list`, an array. Pure.
[[nodiscard]] JsonText promptList();

/// The prompt that `params` names, its text filled with the arguments given. A task prompt gets a
/// new random task id each time; apart from that, pure. `arguments` of another type than object are
/// ignored. Throws `MCPError` -32602.
[[nodiscard]] JsonText getPrompt(const JsonObject& params);

}  // namespace quillmere
