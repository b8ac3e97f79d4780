// Comparison with texts that are kept in files.
#pragma once

#include <string>
#include <string_view>

namespace quillmere {

/// The file `name` in tests/snapshots: JSON as `indentedJson` writes it, and a line feed. To be
/// compared as text, of which GoogleTest shows the lines that differ. The project's version stands
/// where the file says @PROJECT_VERSION@.
[[nodiscard]] std::string snapshot(std::string_view name);

}  // namespace quillmere
