// The binary form of property lists, read where it stands.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace quillmere {

/// Whether `data` starts as a binary property list does. Pure.
[[nodiscard]] bool isBinaryPropertyList(std::string_view data);

/// The string under `key`, an ASCII text, in the dictionary at the top of the binary property list
/// `data`, not necessarily as UTF-8; nothing when there is no such string. Looks at that dictionary
/// and at nothing else, so the time is linear in the size of `data`, whatever it holds. Pure.
[[nodiscard]] std::optional<std::string> binaryPropertyListString(std::string_view data,
                                                                  std::string_view key);

}  // namespace quillmere
