// Shorthand for tests, mainly for those that use JSON.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "json/document.hpp"
#include "json/writer.hpp"
#include "protocol/mcp_error.hpp"

namespace quillmere {

/// The object that `text` holds. It stays valid until the process ends.
[[nodiscard]] inline JsonObject json(std::string_view text) {
  static std::mutex lock;
  static auto& documents = *new std::vector<std::shared_ptr<const JsonDocument>>;
  auto document = parseJson(text);
  const std::lock_guard hold(lock);
  return documents.emplace_back(std::move(document))->root().asObject().value();
}

/// `piece`, `count` times.
[[nodiscard]] inline std::string times(std::size_t count, std::string_view piece) {
  std::string text;
  text.reserve(count * piece.size());
  for (std::size_t i = 0; i < count; ++i) text += piece;
  return text;
}

/// The exception of `call` as code, blank and text, such as "-32602 x must be a number."; empty if
/// there is none.
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
