// Comparison with texts in files.
#pragma once

#include <string>
#include <string_view>

#include "json/writer.hpp"

namespace quillmere {

/// Expects that `text` equals the file `name` in tests/snapshots. If QUILLMERE_WRITE_SNAPSHOTS is
/// set it writes the file first, so that git shows the difference.
void expectSnapshot(std::string_view name, const std::string& text);

/// A list of tools: for each a line of JSON without its schema's properties, then a line per
/// property.
[[nodiscard]] std::string toolLines(const JsonText& tools);

}  // namespace quillmere
