// Arguments as models send them.
#pragma once

#include "tools/arguments.hpp"

namespace quillmere {

/// What `normalizeToolArguments` gives, after each string that is exactly a JSON number (RFC 8259,
/// section 6), `true` or `false` has become that value where `tool` takes one. Nothing else is
/// guessed, and no string is touched where `tool` takes strings. Pure.
[[nodiscard]] NormalizedArguments takeCompatArguments(const Tool& tool,
                                                      const JsonObject& arguments);

}  // namespace quillmere
