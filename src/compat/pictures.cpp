// The app does not say which of its strings are pictures. We know them by their form: base64 from
// end to end, of bytes that begin as a picture's file does. Any other string stays text.
#include "compat/pictures.hpp"

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "json/document.hpp"
#include "platform/base64.hpp"

namespace quillmere {

namespace {

constexpr std::string_view alphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/// How a file begins; a dot is any byte.
struct Signature {
  std::string_view bytes;
  std::string_view mimeType;
};

constexpr Signature signatures[] = {
    {"\x89PNG\r\n\x1A\n", "image/png"},
    {"\xFF\xD8\xFF", "image/jpeg"},
    {"RIFF....WEBP", "image/webp"},
    {"GIF87a", "image/gif"},
    {"GIF89a", "image/gif"},
};
constexpr std::size_t longestSignature = 12;

/// What the first characters of base64 encode, as many as a signature may have.
std::string beginning(std::string_view base64) {
  std::array<unsigned char, longestSignature> bytes{};
  const std::size_t count = Base64Reader(base64).read(bytes);
  return {bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(count)};
}

/// Whether a signature may begin with this character of base64, or with an escape that stands for
/// it. Most strings need no closer look.
constexpr bool mayBeginAPicture(char c) {
  return c == 'i' || c == '/' || c == 'U' || c == 'R' || c == '\\';
}

bool beginsAs(std::string_view file, std::string_view signature) {
  return file.size() >= signature.size() &&
         std::ranges::equal(signature, file.substr(0, signature.size()),
                            [](char want, char have) { return want == '.' || want == have; });
}

/// 0 for a character of the alphabet, else 1. The compiler could not turn a branch or
/// `alphabet.find` into vector code.
constexpr unsigned isForeign(unsigned char c) {
  const unsigned isLetter = unsigned{static_cast<unsigned char>((c | 0x20U) - 'a') < 26};
  const unsigned isDigit = unsigned{static_cast<unsigned char>(c - '0') < 10};
  return 1U ^ (isLetter | isDigit | unsigned{c == '+'} | unsigned{c == '/'});
}

/// Whether all of `text` is base64, its padding included. A screenshot has millions of characters,
/// so we check a block of them without a branch, which the compiler turns into vector code.
bool isBase64(std::string_view text) {
  if (text.empty() || text.size() % 4 != 0) return false;
  const std::size_t padding = text.ends_with("==") ? 2 : text.ends_with('=') ? 1 : 0;
  text.remove_suffix(padding);
  // The bits of the last character that belong to no byte must be zero.
  const std::size_t last = alphabet.find(text.back());
  const std::size_t unusedBits = padding == 2 ? 0xF : padding == 1 ? 0x3 : 0;
  if (last == std::string_view::npos || (last & unusedBits) != 0) return false;
  while (!text.empty()) {
    const std::string_view block = text.substr(0, 4'096);
    unsigned char foreign = 0;
    for (const char c : block) {
      foreign = static_cast<unsigned char>(foreign | isForeign(static_cast<unsigned char>(c)));
    }
    if (foreign != 0) return false;
    text.remove_prefix(block.size());
  }
  return true;
}

std::optional<std::string_view> mimeTypeOf(std::string_view text) {
  const std::string file = beginning(text);
  const auto* found = std::ranges::find_if(
      signatures, [&](const Signature& signature) { return beginsAs(file, signature.bytes); });
  if (found == std::end(signatures) || !isBase64(text)) return std::nullopt;
  return found->mimeType;
}

}  // namespace

std::vector<Picture> picturesIn(const JsonValue& value) {
  // Looking at all tokens is quicker than walking through arrays and objects. A picture has at
  // least four characters of base64, for the shortest signature, and two quotes.
  constexpr std::uint32_t shortest = 6;
  using Kind = JsonDocument::Kind;
  const JsonDocument& document = value.holder();
  std::vector<Picture> pictures;
  for (std::uint32_t i = value.place(); i < document.next(value.place()); ++i) {
    const JsonDocument::Token& token = document.tokenAt(i);
    const bool isString = token.kind() == Kind::plainString || token.kind() == Kind::escapedString;
    if (!isString || token.length() < shortest || !mayBeginAPicture(document.firstByteOf(i)))
      continue;
    // Last, since only the text around a string shows that it is a key.
    if (document.isKey(i)) continue;
    const JsonValue string(document, i);
    const auto mimeType = mimeTypeOf(string.asString()->view());
    if (mimeType) pictures.push_back({.base64 = string, .mimeType = *mimeType});
  }
  return pictures;
}

}  // namespace quillmere
