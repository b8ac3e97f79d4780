// The tool that the server answers by itself: how to use the others.
#pragma once

#include <optional>
#include <string_view>

#include "json/writer.hpp"
#include "tools/form.hpp"

namespace quillmere {

/// The payload of `quillmere.help`: guidance on `topic`, or on the first topic when none or an
/// unknown one is given. Pure; cannot fail.
[[nodiscard]] JsonText helpPayload(std::optional<std::string_view> topic, const Form& form);

/// The `result` of a call of `quillmere.help` with this topic. Pure; cannot fail.
[[nodiscard]] JsonText helpResult(std::optional<std::string_view> topic, const Form& form);

}  // namespace quillmere
