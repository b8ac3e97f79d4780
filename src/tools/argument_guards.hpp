// What may go to the desktop app, whatever a tool's schema allows: the last word before a control
// request is built.
#pragma once

#include <span>
#include <string_view>

#include "json/value.hpp"

namespace quillmere {

/// Refuses a string argument that is longer than its limit in user-perceived characters, known
/// arguments of every command alike. Values of other types pass. Pure. Throws `MCPError` -32602.
void checkStringLimits(const JsonObject& arguments);

/// The names of all arguments that go to the desktop app. The request's own `id` and `command` are
/// not among them, so that no argument can take their place.
[[nodiscard]] std::span<const std::string_view> allControlFields();

}  // namespace quillmere
