// The tool that the server answers by itself: how to use the others.
#pragma once

#include <optional>
#include <string_view>

#include "platform/json_value.hpp"

namespace quillmere {

/// The payload of `quillmere.help`: guidance on `topic`, or on the first topic when none or an
/// unknown one is given. Pure; cannot fail.
[[nodiscard]] JsonObject helpPayload(std::optional<std::string_view> topic);

}  // namespace quillmere
