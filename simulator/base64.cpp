#include "simulator/base64.hpp"

#include <cstdint>

namespace quillmere::simulator {

namespace {

constexpr std::string_view alphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::size_t groupBytes = 3;
constexpr std::size_t groupDigits = 4;

}  // namespace

std::string base64(std::string_view bytes) {
  std::string text;
  text.reserve((bytes.size() + groupBytes - 1) / groupBytes * groupDigits);
  for (std::size_t start = 0; start < bytes.size(); start += groupBytes) {
    const std::string_view group = bytes.substr(start, groupBytes);
    std::uint32_t bits = 0;
    for (std::size_t i = 0; i < groupBytes; ++i) {
      bits = bits << 8U | (i < group.size() ? static_cast<unsigned char>(group[i]) : 0U);
    }
    for (std::size_t digit = 0; digit < groupDigits; ++digit) {
      const auto shift = static_cast<unsigned>(6 * (groupDigits - 1 - digit));
      text += digit <= group.size() ? alphabet[bits >> shift & 0x3FU] : '=';
    }
  }
  return text;
}

std::optional<std::string> bytesOfBase64(std::string_view text) {
  std::string bytes;
  bytes.reserve(text.size() / groupDigits * groupBytes);
  std::uint32_t bits = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool isPadding = text[i] == '=' && i + 2 >= text.size();
    const std::size_t value = isPadding ? 0 : alphabet.find(text[i]);
    if (value == std::string_view::npos) return std::nullopt;
    bits = bits << 6U | static_cast<std::uint32_t>(value);
    if (i % groupDigits != groupDigits - 1) continue;
    for (const unsigned shift : {16U, 8U, 0U}) bytes += static_cast<char>(bits >> shift & 0xFFU);
  }
  if (text.size() % groupDigits != 0) return std::nullopt;
  while (!text.empty() && text.back() == '=') {
    text.remove_suffix(1);
    bytes.pop_back();
  }
  return base64(bytes).starts_with(text) ? std::optional(bytes) : std::nullopt;
}

}  // namespace quillmere::simulator
