// Comparison with texts that are kept in files.
#pragma once

#include <string>
#include <string_view>

#include "json/writer.hpp"

namespace quillmere {

/// Expects that `text` is the file `name` in tests/snapshots. When QUILLMERE_WRITE_SNAPSHOTS is set
/// it writes the file first, for git to show the difference.
void expectSnapshot(std::string_view name, const std::string& text);

/// A list of tools: each is a line of JSON without its schema's properties, and below it a line for
/// each property.
[[nodiscard]] std::string toolLines(const JsonText& tools);

}  // namespace quillmere
