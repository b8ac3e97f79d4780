// The check of a tool's arguments against its schema.
#pragma once

#include "json/value.hpp"
#include "tools/catalogue.hpp"

namespace quillmere {

/// Checks `arguments`, normalised already, against the schema of `tool`. The first failure counts,
/// in this order: unknown argument (the first in sorted order), missing required argument (null
/// counts as missing), a value that breaks its schema (null passes), no session target (the key
/// alone counts). Pure. Throws `MCPError` -32602.
void validateSchemaArguments(const Tool& tool, const JsonObject& arguments);

}  // namespace quillmere
