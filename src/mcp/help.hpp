// The tool that the server carries out by itself: how to use the others.
#pragma once

#include <optional>
#include <string_view>

#include "json/writer.hpp"

namespace quillmere {

/// What `quillmere.help` returns in place of an app response: guidance on `topic`, or on the first
/// topic when none or an unknown one is given. It names tools as the catalogue does. Pure; cannot
/// fail.
[[nodiscard]] JsonText helpPayload(std::optional<std::string_view> topic);

}  // namespace quillmere
