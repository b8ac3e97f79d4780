#include "platform/base64.hpp"

#include <algorithm>
#include <array>

namespace quillmere {

namespace {

constexpr std::string_view alphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::size_t groupBytes = 3;
constexpr std::size_t groupDigits = 4;

/// The six bits of a character of the alphabet; of any other one a number above all of them.
constexpr unsigned foreign = 0x80;
constexpr auto digitValues = [] {
  std::array<unsigned char, 256> values{};
  values.fill(foreign);
  for (std::size_t i = 0; i < alphabet.size(); ++i) {
    values[static_cast<unsigned char>(alphabet[i])] = static_cast<unsigned char>(i);
  }
  return values;
}();

std::uint32_t valueOf(char digit) {
  return digitValues[static_cast<unsigned char>(digit)];
}

}  // namespace

std::string base64(std::string_view bytes) {
  std::string text((bytes.size() + groupBytes - 1) / groupBytes * groupDigits, '=');
  char* to = text.data();
  for (; !bytes.empty(); to += groupDigits) {
    const std::string_view group = bytes.substr(0, groupBytes);
    std::uint32_t bits = 0;
    for (std::size_t i = 0; i < groupBytes; ++i) {
      bits = bits << 8U | (i < group.size() ? static_cast<unsigned char>(group[i]) : 0U);
    }
    for (std::size_t digit = 0; digit <= group.size(); ++digit) {
      to[digit] = alphabet[bits >> 6 * (groupDigits - 1 - digit) & 0x3FU];
    }
    bytes.remove_prefix(group.size());
  }
  return text;
}

std::optional<std::string> bytesOfBase64(std::string_view text) {
  std::string bytes(text.size() / groupDigits * groupBytes, '\0');
  Base64Reader reader(text);
  bytes.resize(reader.read({reinterpret_cast<unsigned char*>(bytes.data()), bytes.size()}));
  return base64(bytes) == text ? std::optional(bytes) : std::nullopt;
}

std::size_t Base64Reader::read(std::span<unsigned char> to) noexcept {
  std::size_t count = 0;
  while (count < to.size() && !text.empty()) {
    if (bitCount == 0 && to.size() - count >= groupBytes && text.size() >= groupDigits) {
      const std::uint32_t values[] = {valueOf(text[0]), valueOf(text[1]), valueOf(text[2]),
                                      valueOf(text[3])};
      if (((values[0] | values[1] | values[2] | values[3]) & foreign) == 0) {
        const std::uint32_t group =
            values[0] << 18U | values[1] << 12U | values[2] << 6U | values[3];
        to[count++] = static_cast<unsigned char>(group >> 16U);
        to[count++] = static_cast<unsigned char>(group >> 8U);
        to[count++] = static_cast<unsigned char>(group);
        text.remove_prefix(groupDigits);
        continue;
      }
    }
    const std::uint32_t value = valueOf(text.front());
    if (value == foreign) {
      text = {};
      break;
    }
    text.remove_prefix(1);
    bits = bits << 6U | value;
    bitCount += 6;
    if (bitCount < 8) continue;
    bitCount -= 8;
    to[count++] = static_cast<unsigned char>(bits >> bitCount);
  }
  return count;
}

}  // namespace quillmere
