// The list of tools as every AI client takes it.
#pragma once

#include <vector>

#include "json/writer.hpp"
#include "tools/catalogue.hpp"

namespace quillmere {

/// The entries of `tools/list`, an array: names without dots, schemas without conditions, and
/// annotations that say what a call does to the phone.
[[nodiscard]] JsonText compatTools();

/// The arguments of `tool` as the list describes them: each shortly, once it is known what it is.
[[nodiscard]] std::vector<Property> compatPropertiesOf(const Tool& tool);

/// Whether calls of `tool` leave the phone as it is.
[[nodiscard]] bool changesNothing(const Tool& tool);

}  // namespace quillmere
