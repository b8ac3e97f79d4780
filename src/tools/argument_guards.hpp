// What may go to the desktop app, whatever a tool's schema allows: the last word before a control
// request is built.
#pragma once

#include <string_view>

#include "json/value.hpp"

namespace quillmere {

/// Refuses a string argument that is longer than its limit in user-perceived characters, known
/// arguments of every command alike. Values of other types pass. Pure. Throws `MCPError` -32602.
void checkStringLimits(const JsonObject& arguments);

/// Whether an argument of this name goes to the desktop app at all. The request's own `id` and
/// `command` are not among them, so that no argument can take their place.
[[nodiscard]] bool isControlField(std::string_view name);

}  // namespace quillmere
