// What happens to a tool's arguments before we send them: normalisation, then the schema check.
#pragma once

#include <memory>
#include <string_view>

#include "json/document.hpp"
#include "json/value.hpp"
#include "tools/catalogue.hpp"

namespace quillmere {

/// Arguments, and the document they refer to if it is not the client's message.
struct NormalizedArguments {
  JsonObject object;
  /// Null when nothing was rewritten.
  std::shared_ptr<const JsonDocument> rewritten;
};

/// `arguments` with `key` of the key tool and `direction` of the scroll tool trimmed, in lower case
/// and, for keys, with aliases resolved. Everything else stays as it is: nothing is coerced, filled
/// in or dropped, and an unknown `name` is not an error. Pure.
[[nodiscard]] NormalizedArguments normalizeToolArguments(std::string_view name,
                                                         const JsonObject& arguments);

/// Checks normalised `arguments` against the schema of `tool`, which the client knows as
/// `name`. The first failure counts, in this order: unknown argument (the first in sorted order),
/// missing required argument (null counts as missing), a value that breaks its schema (null
/// passes), no session target (the key alone counts). Pure. Throws `MCPError` -32602.
void validateSchemaArguments(const Tool& tool, std::string_view name, const JsonObject& arguments);

}  // namespace quillmere
