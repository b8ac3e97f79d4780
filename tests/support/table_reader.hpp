// Reads what docs/tables.md describes, by that page alone.
#pragma once

#include <string>
#include <string_view>

namespace quillmere {

/// The JSON text of the app response in `text`, with its tables back in their places. Throws
/// `std::out_of_range` or `JsonError` where a text is not as that page says.
[[nodiscard]] std::string appResponseIn(std::string_view text);

}  // namespace quillmere
