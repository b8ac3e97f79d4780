// Unicode's tables are utf8proc's. Only the check for UTF-8 is our own: every byte of every message
// goes through it, and checking one character after the other would take longer than everything
// else we do with a large app response.
#include "platform/text.hpp"

#include <utf8proc.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

namespace quillmere {

namespace {

struct CodePoint {
  utf8proc_int32_t value = 0;
  std::size_t length = 0;
};

/// The first code point of `text`, which must hold valid UTF-8 and not be empty.
CodePoint firstCodePoint(std::string_view text) {
  const auto lead = static_cast<unsigned char>(text.front());
  if (lead < 0x80) return {lead, 1};
  CodePoint point;
  const utf8proc_ssize_t length =
      utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                       static_cast<utf8proc_ssize_t>(text.size()), &point.value);
  // At least one, so that a caller's loop always ends.
  point.length = length > 0 ? static_cast<std::size_t>(length) : 1;
  return point;
}

CodePoint lastCodePoint(std::string_view text) {
  std::size_t at = text.size() - 1;
  while (at > 0 && (static_cast<unsigned char>(text[at]) & 0xC0U) == 0x80U) --at;
  CodePoint point = firstCodePoint(text.substr(at));
  point.length = text.size() - at;
  return point;
}

bool isSpaceOrLineBreak(utf8proc_int32_t point) {
  if ((point >= 0x09 && point <= 0x0D) || point == 0x85) return true;
  switch (utf8proc_category(point)) {
    case UTF8PROC_CATEGORY_ZS:
    case UTF8PROC_CATEGORY_ZL:
    case UTF8PROC_CATEGORY_ZP:
      return true;
    default:
      return false;
  }
}

/// `point`, or a stand-in for it if it is reserved but not yet assigned. The standard says how
/// characters that may be assigned there later will break (UAX #29, GraphemeBreakProperty), but
/// utf8proc does not. Without this, emoji newer than the library would be counted one by one.
utf8proc_int32_t breakingAlike(utf8proc_int32_t point) {
  if (point < 0x2065 || utf8proc_category(point) != UTF8PROC_CATEGORY_CN) return point;
  const auto isWithin = [&](utf8proc_int32_t first, utf8proc_int32_t last) {
    return point >= first && point <= last;
  };
  constexpr utf8proc_int32_t pictograph = 0x1F4F1;
  constexpr utf8proc_int32_t control = 0x200B;
  if (isWithin(0x1F000, 0x1FAFF) || isWithin(0x1FC00, 0x1FFFD)) return pictograph;
  if (point == 0x2065 || isWithin(0xFFF0, 0xFFF8) || isWithin(0xE0000, 0xE0FFF)) return control;
  return point;
}

constexpr std::size_t blockBytes = 16;
/// How many preceding bytes a byte of UTF-8 may depend on.
constexpr std::size_t lookBack = 3;

/// Bytes that one instruction processes together. Both compilers have this for all processors.
using ByteBlock [[gnu::vector_size(blockBytes)]] = unsigned char;

ByteBlock blockAt(const char* bytes) {
  ByteBlock block;
  std::memcpy(&block, bytes, sizeof block);
  return block;
}

bool isAnySet(ByteBlock block) {
  std::array<std::uint64_t, 2> halves{};
  static_assert(sizeof halves == sizeof block);
  std::memcpy(halves.data(), &block, sizeof block);
  return (halves[0] | halves[1]) != 0;
}

/// Non-zero if one of the 16 bytes at `bytes` breaks the rules of RFC 3629, section 4, or shows
/// that the byte before it does. Judges each byte by itself and the three bytes before it, which
/// must be readable. A character that the last bytes begin is judged with the bytes that follow.
inline ByteBlock utf8Errors(const char* bytes) {
  const ByteBlock here = blockAt(bytes);
  const ByteBlock before = blockAt(bytes - 1);
  const ByteBlock twoBefore = blockAt(bytes - 2);
  const ByteBlock threeBefore = blockAt(bytes - 3);
  // A comparison gives 0xFF in each byte where it holds, and 0 elsewhere.
  const auto where = [](auto comparison) { return reinterpret_cast<ByteBlock>(comparison); };

  // A lead byte says how many bytes must follow it. A byte must be a continuation exactly if the
  // byte before it leads a character, the second one before leads one of at least three bytes, or
  // the third one before leads one of four. Where the two disagree is an error.
  const ByteBlock continues = where((here & 0xC0) == 0x80);
  const ByteBlock mustContinue =
      where(before >= 0xC0) | where(twoBefore >= 0xE0) | where(threeBefore >= 0xF0);
  ByteBlock errors = continues ^ mustContinue;

  // Few scripts have characters that begin with one of these bytes. Texts in other scripts are
  // faster if we skip these rules.
  const ByteBlock neverFirst = where((before & 0xFE) == 0xC0);
  const ByteBlock isE0 = where(before == 0xE0);
  const ByteBlock isED = where(before == 0xED);
  const ByteBlock isF0OrMore = where(before >= 0xF0);
  if (isAnySet(neverFirst | isE0 | isED | isF0OrMore)) {
    errors |= neverFirst | where(before >= 0xF5);           // Overlong; past U+10FFFF.
    errors |= isE0 & where(here < 0xA0);                    // Overlong.
    errors |= isED & where(here >= 0xA0);                   // Surrogates.
    errors |= where(before == 0xF0) & where(here < 0x90);   // Overlong.
    errors |= where(before == 0xF4) & where(here >= 0x90);  // Past U+10FFFF.
  }
  return errors;
}

}  // namespace

bool isUtf8(std::string_view text) {
  if (text.empty()) return true;
  // ASCII blocks that do not follow an unfinished character need no closer look.
  ByteBlock errors{};
  std::size_t at = 0;
  if (text.size() >= blockBytes) {
    std::array<char, lookBack + blockBytes> start{};
    std::memcpy(&start[lookBack], text.data(), blockBytes);
    errors |= utf8Errors(&start[lookBack]);
    for (at = blockBytes; at + blockBytes <= text.size(); at += blockBytes) {
      const char* const block = text.data() + at;
      if (isAnySet((blockAt(block - lookBack) | blockAt(block)) & 0x80)) {
        errors |= utf8Errors(block);
      }
    }
  }
  // The rest and at least one zero byte, so that a truncated character shows up.
  std::array<char, lookBack + blockBytes> rest{};
  const std::size_t before = std::min(lookBack, at);
  std::memcpy(&rest[lookBack - before], text.data() + at - before, before + text.size() - at);
  errors |= utf8Errors(&rest[lookBack]);
  return !isAnySet(errors);
}

void appendUtf8(std::string& text, char32_t character) {
  std::array<utf8proc_uint8_t, 4> bytes{};
  const utf8proc_ssize_t length =
      utf8proc_encode_char(static_cast<utf8proc_int32_t>(character), bytes.data());
  text.append(reinterpret_cast<const char*>(bytes.data()), static_cast<std::size_t>(length));
}

std::size_t utf8CharacterLength(std::string_view text) {
  if (text.empty()) return 0;
  utf8proc_int32_t point = 0;
  const utf8proc_ssize_t length =
      utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                       static_cast<utf8proc_ssize_t>(text.size()), &point);
  return length > 0 ? static_cast<std::size_t>(length) : 0;
}

std::string withUtf8Repaired(std::string_view text) {
  std::string repaired;
  while (!text.empty()) {
    const std::size_t length = utf8CharacterLength(text);
    repaired += length > 0 ? text.substr(0, length) : "\uFFFD";
    text.remove_prefix(length > 0 ? length : 1);
  }
  return repaired;
}

bool contains(std::span<const std::string_view> texts, std::string_view text) {
  return std::ranges::find(texts, text) != texts.end();
}

std::string joined(std::span<const std::string_view> texts, std::string_view separator) {
  std::string result;
  for (std::size_t i = 0; i < texts.size(); ++i) {
    if (i > 0) result += separator;
    result += texts[i];
  }
  return result;
}

bool isAscii(std::string_view text) {
  return std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

std::string asciiLowerCased(std::string_view text) {
  std::string lowered(text);
  for (char& c : lowered) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return lowered;
}

std::string_view trimmed(std::string_view text) {
  while (!text.empty()) {
    const CodePoint first = firstCodePoint(text);
    if (!isSpaceOrLineBreak(first.value)) break;
    text.remove_prefix(first.length);
  }
  while (!text.empty()) {
    const CodePoint last = lastCodePoint(text);
    if (!isSpaceOrLineBreak(last.value)) break;
    text.remove_suffix(last.length);
  }
  return text;
}

std::string lowerCased(std::string_view text) {
  constexpr utf8proc_int32_t capitalIWithDotAbove = 0x130;
  std::string lowered;
  lowered.reserve(text.size());
  while (!text.empty()) {
    const CodePoint point = firstCodePoint(text);
    // utf8proc maps one code point to one. This is the only one that always becomes two.
    if (point.value == capitalIWithDotAbove) {
      lowered += "i\u0307";
    } else {
      appendUtf8(lowered, static_cast<char32_t>(utf8proc_tolower(point.value)));
    }
    text.remove_prefix(point.length);
  }
  return lowered;
}

bool hasMoreCharactersThan(std::string_view text, std::size_t count) {
  // A character has at least one byte and one code point. For most texts these counts decide.
  const auto beginsCodePoint = [](char c) {
    return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U;
  };
  if (text.size() <= count) return false;
  if (static_cast<std::size_t>(std::ranges::count_if(text, beginsCodePoint)) <= count) return false;
  std::size_t characters = 0;
  utf8proc_int32_t previous = 0;
  utf8proc_int32_t state = 0;
  while (!text.empty()) {
    const CodePoint point = firstCodePoint(text);
    const utf8proc_int32_t next = breakingAlike(point.value);
    if (characters == 0 || utf8proc_grapheme_break_stateful(previous, next, &state)) {
      if (++characters > count) return true;
    }
    previous = next;
    text.remove_prefix(point.length);
  }
  return false;
}

}  // namespace quillmere
