// Shorthand for tests, most of all for those that speak JSON.
#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "platform/json_parser.hpp"
#include "platform/json_value.hpp"
#include "platform/json_writer.hpp"
#include "shared/mcp_error.hpp"

namespace quillmere {

/// The object that `text` holds.
[[nodiscard]] inline JsonObject json(std::string_view text) {
  JsonValue value = parseJson(text);
  return std::move(*value.asObject());
}

/// `piece`, `count` times.
[[nodiscard]] inline std::string times(std::size_t count, std::string_view piece) {
  std::string text;
  text.reserve(count * piece.size());
  for (std::size_t i = 0; i < count; ++i) text += piece;
  return text;
}

/// What `call` throws, as code, blank and text, such as "-32602 x must be a number."; empty when it
/// throws nothing.
template <typename Call>
[[nodiscard]] std::string failureOf(Call call) {
  try {
    call();
    return "";
  } catch (...) {
    const MCPError error = currentFailure();
    return std::to_string(error.code) + " " + error.message;
  }
}

}  // namespace quillmere
