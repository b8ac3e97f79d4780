// Loosely written key names and scroll directions, brought into their canonical form.
#pragma once

#include <string_view>

#include "platform/json_value.hpp"

namespace quillmere {

/// `arguments` with `key` of the key tool and `direction` of the scroll tool trimmed, in lower case
/// and, for keys, with aliases resolved. Everything else stays as it is: nothing is coerced, filled
/// in or dropped, and an unknown `name` is no error. Pure.
[[nodiscard]] JsonObject normalizeToolArguments(std::string_view name, JsonObject arguments);

}  // namespace quillmere
