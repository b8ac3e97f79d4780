// The list of tools as every AI client takes it.
#pragma once

#include "json/writer.hpp"

namespace quillmere {

/// The entries of `tools/list`, an array: names without dots, schemas without conditions, and
/// annotations that say what a call does to the phone.
[[nodiscard]] JsonText compatTools();

}  // namespace quillmere
