// The tool that the server carries out by itself: how to use the others.
#pragma once

#include <optional>
#include <string_view>

#include "json/writer.hpp"

namespace quillmere {

/// What `quillmere.help` returns instead of an app response: guidance on `topic`, or on the first
/// topic if it is missing or unknown. It names tools as the catalogue does. Pure; cannot fail.
[[nodiscard]] JsonText helpPayload(std::optional<std::string_view> topic);

}  // namespace quillmere
