// Loosely written key names and scroll directions, brought into their canonical form.
#pragma once

#include <memory>
#include <string_view>

#include "json/document.hpp"
#include "json/value.hpp"

namespace quillmere {

/// Arguments, and what they refer to if that is not the message that brought them.
struct NormalizedArguments {
  JsonObject object;
  /// Null when nothing had to be rewritten.
  std::shared_ptr<const JsonDocument> rewritten;
};

/// `arguments` with `key` of the key tool and `direction` of the scroll tool trimmed, in lower case
/// and, for keys, with aliases resolved. Everything else stays as it is: nothing is coerced, filled
/// in or dropped, and an unknown `name` is no error. Pure.
[[nodiscard]] NormalizedArguments normalizeToolArguments(std::string_view name,
                                                         const JsonObject& arguments);

}  // namespace quillmere
