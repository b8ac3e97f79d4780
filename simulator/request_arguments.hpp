// The arguments of a control request, read with the types and ranges that commands need. All pure;
// all throw `Refusal` for any other value.
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
/// A number of at least 0 and below `end`.
[[nodiscard]] double coordinate(const JsonObject& request, std::string_view key, int end);
/// A whole number from `least` to `most`; `otherwise`, if given, when it is missing.
[[nodiscard]] std::int64_t wholeNumber(const JsonObject& request, std::string_view key,
                                       std::int64_t least, std::int64_t most,
                                       std::optional<std::int64_t> otherwise = {});

}  // namespace quillmere::simulator
