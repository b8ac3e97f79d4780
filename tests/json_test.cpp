// JSON text in and out, and the numbers that pass through unharmed.
#include "support/json.hpp"

#include <gtest/gtest.h>

#include <cmath>

namespace quillmere {
namespace {

/// Both ways of parsing and both of writing, which must agree.
std::string parseAndWrite(const std::string& text) {
  try {
    std::string written = compactJson(parseJson(text));
    const JsonObject inPlace{{"value", parseJsonInPlace(text)}};
    const JsonText inPieces(inPlace, 8);
    std::string joined;
    for (const std::string_view piece : inPieces.pieces()) joined += piece;
    EXPECT_EQ(joined, "{\"value\":" + written + "}");
    return written;
  } catch (const JsonError&) {
    return "refused";
  }
}

TEST(Json, TextGoesThroughUnharmed) {
  const std::string digits = times(1000, "7");
  struct TextCase {
    std::string_view name;
    std::string text, written;
  };
  const TextCase cases[] = {
      {"blanks around tokens go", " \t\r\n{ \"a\" : [ 1 , { } , [ ] ] } ", R"({"a":[1,{},[]]})"},
      {"equal keys in another spelling are equal", R"({"a":1,"\u0061":2})", R"({"a":2})"},
      {"numbers keep their spelling", "[1.0,-0,1E+2,0.10,5e-1]", "[1.0,-0,1E+2,0.10,5e-1]"},
      {"numbers keep their digits past 64 bits",
       "[9007199254740993,12345678901234567890123,1e400,0.1000000000000000055511151231257827]",
       "[9007199254740993,12345678901234567890123,1e400,0.1000000000000000055511151231257827]"},
      {"a number of a thousand digits", "[" + digits + "]", "[" + digits + "]"},
      {"a fraction of a thousand digits", "[0." + digits + "]", "[0." + digits + "]"},
      {"slashes and non-ASCII stand as they are", "[\"a/b é 为 😀\"]", "[\"a/b é 为 😀\"]"},
      {"escapes that are not needed go", R"(["\/ \u00e9 \u4e3A \ud83d\ude00 \u007f"])",
       "[\"/ é 为 😀 \x7f\"]"},
      {"escapes that are needed stay", R"(["\"\\\b\f\n\r\t\u0000\u001F"])",
       R"(["\"\\\b\f\n\r\t\u0000\u001f"])"},
      {"an escape behind a long clean run", "[\"" + times(100, "x") + "\\n\"]",
       "[\"" + times(100, "x") + "\\n\"]"},
      {"a string that makes up most of the text", R"({"a":[1,{"b":"most of it"}]})",
       R"({"a":[1,{"b":"most of it"}]})"},
      {"one that starts with an escape", R"({"a":"\u00e9 and most of the text"})",
       R"({"a":"é and most of the text"})"},
      {"one whose key comes again", R"({"a":"most of the text","a":1})", R"({"a":1})"},
  };
  for (const auto& [name, text, written] : cases) {
    EXPECT_EQ(parseAndWrite(text), written) << name;
  }
}

TEST(Json, WhatIsNoJsonIsRefused) {
  const std::pair<std::string_view, std::string> cases[] = {
      {"nothing", ""},
      {"null at the top", "null"},
      {"text behind the document", "[] x"},
      {"a NUL behind the document", std::string("{}\0", 3)},
      {"a byte order mark", "\xEF\xBB\xBF{}"},
      {"a document that stops short", R"({"a":[1,)"},
      {"a comma too many", "[1,]"},
      {"a comment", "[1/* one */]"},
      {"NaN", "[NaN]"},
      {"Infinity", "[-Infinity]"},
      {"a line feed in a string", "[\"a\nb\"]"},
      {"an unknown escape", R"(["\x41"])"},
      {"a lone high surrogate", R"(["\ud83d"])"},
      {"a lone low surrogate", R"(["\ude00"])"},
      {"an overlong slash", "[\"\xC0\xAF\"]"},
      {"a surrogate as bytes", "[\"\xED\xA0\x80\"]"},
      {"bad bytes in a key", "{\"\xFF\":1}"},
  };
  for (const auto& [name, text] : cases) EXPECT_EQ(parseAndWrite(text), "refused") << name;
}

TEST(Json, NestingEndsAtItsLimit) {
  const auto arrays = [](std::size_t depth) { return times(depth, "[") + times(depth, "]"); };
  const auto objects = [](std::size_t depth) {
    return times(depth - 1, "{\"a\":") + "{}" + times(depth - 1, "}");
  };
  EXPECT_EQ(parseAndWrite(arrays(512)), arrays(512));
  EXPECT_EQ(parseAndWrite(objects(512)), objects(512));
  for (const std::string& deep : {arrays(513), objects(513), times(100'000, "{\"a\":")}) {
    EXPECT_EQ(parseAndWrite(deep), "refused");
  }
}

TEST(Json, AnErrorDoesNotEchoTheInput) {
  EXPECT_EQ(failureOf([] { static_cast<void>(parseJson("[secret]")); }).find("secret"),
            std::string::npos);
}

TEST(Json, ObjectsWithManyMembersKeepOrderAndTheLastOfEqualKeys) {
  const auto members = [](std::string_view value) {
    std::string text;
    for (int i = 100; i > 0; --i) text += "\"k" + std::to_string(i) + std::string(value);
    return text;
  };
  EXPECT_EQ(parseAndWrite("{" + members("\":0,") + members("\":1,") + "\"\":null}"),
            "{" + members("\":1,") + "\"\":null}");
}

TEST(Json, NumbersAreReadWhateverTheirSpelling) {
  struct NumberCase {
    std::string_view text;
    std::optional<std::int64_t> integer;
    std::string_view canonical;
  };
  const NumberCase cases[] = {
      {"5", 5, "5"},
      {"5.0", 5, "5"},
      {"0.5e1", 5, "5"},
      {"12e1", 120, "12e1"},
      {"-120.00", -120, "-12e1"},
      {"-0.0", 0, "0"},
      {"0e999999999", 0, "0"},
      {"5.5", std::nullopt, "55e-1"},
      {"9223372036854775807", INT64_MAX, "9223372036854775807"},
      {"9223372036854775808", std::nullopt, "9223372036854775808"},
      {"-9223372036854775808", INT64_MIN, "-9223372036854775808"},
      {"1e18", 1'000'000'000'000'000'000, "1e18"},
      {"1e400", std::nullopt, "1e400"},
      {"1e-400", std::nullopt, "1e-400"},
  };
  for (const auto& [text, integer, canonical] : cases) {
    const JsonValue parsed = parseJson("[" + std::string(text) + "]");
    const JsonNumber& number = *parsed.asArray()->front().asNumber();
    EXPECT_EQ(number.integer(), integer) << text;
    EXPECT_EQ(number.canonicalText(), canonical) << text;
  }
  EXPECT_EQ(JsonNumber::fromText("1e400").value(), HUGE_VAL);
  EXPECT_EQ(JsonNumber::fromText("9007199254740993").value(), 9007199254740992.0);
}

TEST(Json, IndentedTextSortsKeysByTheirBytes) {
  EXPECT_EQ(indentedJson(json(R"({"é":[],"a/b":{},"B":1})")),
            "{\n  \"B\": 1,\n  \"a/b\": {},\n  \"é\": []\n}");
}

TEST(Json, TextThatIsNotUtf8IsNeverWritten) {
  EXPECT_THROW(static_cast<void>(compactJson(JsonObject{{"path", "/tmp/\xFF"}})), JsonError);
  EXPECT_THROW(static_cast<void>(compactJson(JsonObject{{"\xED\xA0\x80", 1}})), JsonError);
}

}  // namespace
}  // namespace quillmere
