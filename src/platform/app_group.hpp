// Application groups: folders that a platform lets related programs share.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace quillmere {

/// Absolute path of the shared folder that the platform keeps for the application group, or nothing
/// where it has none. Thread-safe.
[[nodiscard]] std::optional<std::string> appGroupContainer(std::string_view group);

}  // namespace quillmere
