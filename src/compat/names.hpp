// Names of tools without a dot, which some model interfaces refuse.
#pragma once

#include <string>
#include <string_view>

#include "tools/catalogue.hpp"

namespace quillmere {

/// `text` with underscores in the names of tools, `quillmere_ui_get_state` for the short
/// `ui.get_state` included. Pure.
[[nodiscard]] std::string compatSpelled(std::string_view text);

/// The tool that a client calls by `name`, with underscores or as in the catalogue, or null. Pure.
[[nodiscard]] const Tool* findCompatTool(std::string_view name);

}  // namespace quillmere
