// Characters as people count them, white space, lower case, UTF-8.
#include "platform/text.hpp"

#include <gtest/gtest.h>

#include "support/json.hpp"

namespace quillmere {
namespace {

TEST(Text, CharactersAreCountedAsPeopleDo) {
  struct CountCase {
    std::string_view name;
    std::string text;
    std::size_t count;
  };
  const CountCase cases[] = {
      {"nothing", "", 0},
      {"NUL is a character", std::string("a\0b", 3), 3},
      {"a letter with many combining marks", "e" + times(1000, "\u0301"), 1},
      {"a mark after a control character", "\n\u0301", 2},
      {"CR LF CR LF", "\r\n\r\n", 2},
      {"one and a half flags", "🇨🇳🇨", 2},
      {"a family joined by ZWJ", "👨\u200D👩\u200D👧\u200D👦", 1},
      {"two people", "👨👩", 2},
      {"two future emoji, joined", "\U0001F8FF\u200D\U0001FAFF", 1},
      {"two of the block after next, joined", "\U0001FC00\u200D\U0001FFFD", 1},
      {"nothing is joined past the blocks", "\U0001FB92\u200D\U0001FFFE", 2},
      {"reserved control characters", "a\u2065b\uFFF0c\uFFF8\U000E0000\U000E0FFF\u0301", 9},
      {"ZWJ between letters joins nothing", "a\u200Db", 2},
      {"Hangul in three jamo", "\u1112\u1161\u11AB", 1},
      {"Devanagari with a vowel sign", "\u0928\u093F", 1},
      {"a prepended Arabic number sign", "\u0600\u0661", 1},
      {"a zero width space is a control character", "a\u200Bb", 3},
      {"16,384 flags", times(16'384, "🇨🇳"), 16'384},
  };
  for (const auto& [name, text, count] : cases) {
    EXPECT_FALSE(hasMoreCharactersThan(text, count)) << name;
    EXPECT_TRUE(count == 0 || hasMoreCharactersThan(text, count - 1)) << name;
  }
}

TEST(Text, WhiteSpaceAndLineBreaksAreTrimmedAtBothEnds) {
  constexpr std::string_view white[] = {"\t",     "\n",     "\v",     "\f",     "\r",     " ",
                                        "\u0085", "\u00A0", "\u1680", "\u2000", "\u2003", "\u200A",
                                        "\u2028", "\u2029", "\u202F", "\u205F", "\u3000"};
  for (const std::string_view space : white) {
    const std::string around(space);
    const std::string within = "a" + around + "é";
    EXPECT_EQ(trimmed(std::string(around).append(within).append(around)), within) << around;
    EXPECT_EQ(trimmed(around + around), "") << around;
  }
  for (const std::string_view other : {"\u200B", "\uFEFF", "\u180E", "\x1F", "\x7F"}) {
    EXPECT_EQ(trimmed(other), other) << other;
  }
}

TEST(Text, LowerCase) {
  constexpr std::pair<std::string_view, std::string_view> cases[] = {
      {"Page-DOWN_7", "page-down_7"},
      {"\u0130", "i\u0307"},
      {"\U00010400", "\U00010428"},
      {"ß为", "ß为"},
  };
  for (const auto& [text, lowered] : cases) EXPECT_EQ(lowerCased(text), lowered) << text;
  EXPECT_EQ(asciiLowerCased("Content-LENGTH É"), "content-length É");
}

TEST(Text, Utf8IsWrittenAndRepaired) {
  EXPECT_EQ(withUtf8Repaired("a\xFFé\xC3"), "a\uFFFDé\uFFFD");
  std::string text;
  for (const char32_t character : U"\x7F\u0080\u07FF\u0800\uFFFF\U00010000\U0010FFFF") {
    appendUtf8(text, character);
  }
  EXPECT_EQ(text, std::string("\x7F\u0080\u07FF\u0800\uFFFF\U00010000\U0010FFFF\0", 20));
  EXPECT_TRUE(isAscii("exactly 16 bytes"));
  EXPECT_FALSE(isAscii("exactly 16 byte\x80"));
}

TEST(Text, OnlyStrictUtf8PassesAtAnyPosition) {
  // A character or an invalid sequence: two bytes and what follows.
  for (int lead = 0x7F; lead <= 0xFF; ++lead) {
    for (const char second : std::string_view("\x7F\x80\x8F\x90\x9F\xA0\xBF\xC0")) {
      for (const std::string_view rest : {"", "\x80", "\x80\xBF", "\x80\xBF\x80"}) {
        const std::string sequence = std::string{static_cast<char>(lead), second}.append(rest);
        const bool isGood = withUtf8Repaired(sequence) == sequence;
        for (std::size_t offset = 0; offset <= 40; ++offset) {
          for (const std::string_view around : {"x", "为"}) {
            std::string text = times(offset / around.size(), around);
            text.append(offset % around.size(), 'x').append(sequence);
            if (isUtf8(text) != isGood || isUtf8(text + times(32, around)) != isGood) {
              ADD_FAILURE() << testing::PrintToString(sequence) << " at " << offset << " in "
                            << around;
            }
          }
        }
      }
    }
  }
}

}  // namespace
}  // namespace quillmere
