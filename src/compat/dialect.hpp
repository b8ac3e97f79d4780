// The dialect of `quillmere-mcp-compat`: what every AI client takes, and gives to its model whole.
#pragma once

#include "mcp/dialect.hpp"

namespace quillmere {

extern const Dialect compatDialect;

}  // namespace quillmere
