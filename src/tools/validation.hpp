// The check of a tool's arguments against its schema.
#pragma once

#include <string_view>

#include "platform/json_value.hpp"
#include "tools/catalogue.hpp"

namespace quillmere {

/// Checks `arguments`, normalised already, against the schema of the tool called `name`. The first
/// failure counts, in this order: unknown tool, unknown argument (the first in sorted order),
/// missing required argument (null counts as missing), a value that breaks its schema (null
/// passes), no session target (the key alone counts). Pure. Throws `MCPError` -32602.
void validateSchemaArguments(std::string_view name, const JsonObject& arguments);

/// Checks a number against the limits of `property`, both inclusive. Pure. Throws `MCPError`
/// -32602.
void validateNumericRange(double value, const Property& property);

}  // namespace quillmere
