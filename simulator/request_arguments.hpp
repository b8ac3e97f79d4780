// The arguments of a control request, read with the types and ranges that commands want. All pure;
// all throw `Refusal` for a value that will not do.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "json/value.hpp"

namespace quillmere::simulator {

[[nodiscard]] std::string textArgument(const JsonObject& request, std::string_view key);
/// Empty when it is missing.
[[nodiscard]] std::string optionalText(const JsonObject& request, std::string_view key);
[[nodiscard]] bool flag(const JsonObject& request, std::string_view key, bool otherwise);
/// A number from 0 to below `end`.
[[nodiscard]] double coordinate(const JsonObject& request, std::string_view key, int end);
/// A whole number from `least` to `most`; `otherwise`, if there is one, when it is missing.
[[nodiscard]] std::int64_t wholeNumber(const JsonObject& request, std::string_view key,
                                       std::int64_t least, std::int64_t most,
                                       std::optional<std::int64_t> otherwise = {});

}  // namespace quillmere::simulator
