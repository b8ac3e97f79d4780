// JSON text in and out: what passes through unchanged, what changes, and how values are read.
#include "support/json.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <optional>

namespace quillmere {
namespace {

/// Reads the value in every possible way, and rebuilds it from what was read.
JsonText rewritten(const JsonValue& value) {
  if (const auto array = value.asArray()) {
    EXPECT_EQ(array->size(), static_cast<std::size_t>(std::distance(array->begin(), array->end())));
    JsonText text = JsonText::array();
    for (const JsonValue element : *array) text.add(rewritten(element));
    return text;
  }
  if (const auto object = value.asObject()) {
    JsonText text = JsonText::object();
    for (const JsonMember member : object->distinctMembers()) {
      const JsonString key = member.key();
      const auto found = object->find(key.view());
      EXPECT_TRUE(found && found->place() == member.value().place()) << key.view();
      text.set(key.view(), rewritten(member.value()));
    }
    return text;
  }
  if (const auto string = value.asString()) return *string;
  if (const auto boolean = value.asBoolean()) return *boolean;
  return value.isNull() ? JsonText() : JsonText::ofJson(value.asNumber().value().text());
}

/// The text that is passed on, or why it is refused.
std::string passedOn(std::string_view text) {
  try {
    return std::string(parseJson(text)->root().text());
  } catch (const JsonError& error) {
    EXPECT_TRUE(text.empty() || std::string_view(error.what()).find(text) == std::string::npos);
    return error.kind == JsonError::Kind::notUtf8 ? "not UTF-8" : "not JSON";
  }
}

TEST(Json, TextIsPassedOnUnchangedAndReadCorrectly) {
  constexpr std::string_view same;
  const std::string clean = times(100, "为");
  const std::string digits = times(1000, "7");
  struct TextCase {
    std::string_view name;
    std::string came;
    /// `same` if it equals what came.
    std::string passedOn, read;
  };
  const TextCase cases[] = {
      {"literals", "[null,true,false,\"\",{},[[]]]", "", ""},
      {"white space is removed between tokens, and nowhere else",
       " \t{ \"a\"\t: [ 1 , { } ,\n[ ] ]\r, \"b :\" : \" \\n , \" } ",
       R"({"a":[1,{},[]],"b :":" \n , "})", ""},
      {"each kind of it by itself", "[ 1,[2\t],{\n},\"\"\r]", R"([1,[2],{},""])", ""},
      {"a single blank", R"({"a": 1})", R"({"a":1})", ""},
      {"white space after the last token", "[1] \r\n", "[1]", ""},
      {"an escaped slash is unescaped, also when there are blanks", R"({ "a\/b" : "\/\\\/ \n" })",
       R"({"a/b":"/\\/ \n"})", ""},
      {"a slash after an escaped backslash is not escaped", R"(["a\\/"])", "", ""},
      {"slashes and non-ASCII are kept", "[\"a/b é 为 😀\"]", "", ""},
      {"escapes, needed and not needed",
       R"({"\u0061":"\"\\\b\f\n\r\t\u0000\u001F\u0020\u00e9\u4E3A\uffff\ud83d\uDE00\uDBFF\udfff"})",
       "",
       R"({"a":"\"\\\b\f\n\r\t\u0000\u001f é为)"
       "\uFFFF😀\U0010FFFF\"}"},
      {"an escape after a long clean run", "[\"" + clean + R"(\u000A)" + clean + "\",1]", "",
       "[\"" + clean + R"(\n)" + clean + "\",1]"},
      {"an escape in a string that the parser reports in parts",
       "[\"\\\"" + digits + digits + digits + digits + digits + "\\\"\",1]", "", ""},
      {"strings that look like tokens", R"(["]\",[{\\",{"}:":",\\\""}])", "", ""},
      {"the last of equal keys counts, in the place of the first, however spelled",
       R"({"a":1,"b":2,"a":{"a":3},"":4,"\u0061":5,"a ":6})", "", R"({"a":5,"b":2,"":4,"a ":6})"},
      {"numbers keep their spelling", "[1.0,-0,1E+2,0.10,5e-1]", "", ""},
      {"numbers keep their digits",
       "[9007199254740993,12345678901234567890123,1e400,0.1000000000000000055511151231257827]", "",
       ""},
      {"a number of a thousand digits", "[-" + digits + ",0." + digits + "]", "", ""},
  };
  for (const auto& [name, came, changed, read] : cases) {
    const std::string& expected = changed == same ? came : changed;
    EXPECT_EQ(passedOn(came), expected) << name;
    EXPECT_EQ(passedOn(expected), expected) << name << ", a second time";
    EXPECT_EQ(rewritten(parseJson(came)->root()).str(), read == same ? expected : read) << name;
  }
}

TEST(Json, RefusesTextThatIsNotJson) {
  for (const std::string_view text : {"",
                                      "null",
                                      "\"a\"",
                                      "5",
                                      "[] x",
                                      "{}[]",
                                      "\xEF\xBB\xBF{}",
                                      R"({"a":[1,)",
                                      "[1,]",
                                      "[1/* one */]",
                                      R"([1\/])",
                                      R"(["\)",
                                      R"([]\)",
                                      "[NaN]",
                                      "[-Infinity]",
                                      "[1e2147483648]",
                                      "[\"a\nb\"]",
                                      R"(["\x41"])",
                                      R"(["\u12\/34"])",
                                      R"(["\ud83d"])",
                                      R"(["\ud83d\n"])",
                                      R"(["\ude00"])"}) {
    EXPECT_EQ(passedOn(text), "not JSON") << text;
  }
  EXPECT_EQ(passedOn({"{}\0", 3}), "not JSON") << "a NUL after the document";
  for (const std::string_view text :
       {"[\"\xC0\xAF\"]", "[\"\xED\xA0\x80\"]", "{\"\xFF\":1}", "\xFF{", "{} \x80"}) {
    EXPECT_EQ(passedOn(text), "not UTF-8") << testing::PrintToString(text);
  }
}

TEST(Json, NestingHasALimit) {
  const auto arrays = [](std::size_t depth) { return times(depth, "[") + times(depth, "]"); };
  const auto objects = [](std::size_t depth) {
    return times(depth - 1, "{\"a\":") + "{}" + times(depth - 1, "}");
  };
  for (const std::string& text : {arrays(512), objects(512)}) {
    EXPECT_EQ(passedOn(text), text);
    EXPECT_EQ(rewritten(parseJson(text)->root()).str(), text);
  }
  for (const std::string& deep : {arrays(513), objects(513), times(100'000, "{\"a\":")}) {
    EXPECT_EQ(passedOn(deep), "not JSON");
  }
}

TEST(Json, ObjectsWithManyMembersKeepOrderAndTheLastOfEqualKeys) {
  const auto members = [](std::string_view value) {
    std::string text;
    for (int i = 100; i > 0; --i) text += "\"k" + std::to_string(i) + std::string(value);
    return text;
  };
  const auto text =
      parseJson("{" + members("\":0,") + R"("k":{"k1":2},)" + members("\":1,") + "\"\":null}");
  EXPECT_EQ(rewritten(text->root()).str(), "{" + members("\":1,") + R"("k":{"k1":2},"":null})");
}

TEST(Json, ReadsNumbersInAnySpelling) {
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
    const JsonNumber number(text);
    EXPECT_EQ(number.integer(), integer) << text;
    EXPECT_EQ(number.canonicalText(), canonical) << text;
  }
  EXPECT_EQ(JsonNumber("1e400").value(), HUGE_VAL);
  EXPECT_EQ(JsonNumber("9007199254740993").value(), 9007199254740992.0);
}

TEST(Json, CountsCharactersInAnySpelling) {
  struct StringCase {
    std::string characters;
    std::size_t count;
  };
  const StringCase cases[] = {
      {"", 0},
      {"abc", 3},
      {R"(\\n\"\\u0041)", 9},
      {times(50, R"(\r\n)"), 50},
      {R"(a\u00e9\u4e3a)", 3},
      {R"(e\u0301\ud83d\ude00)" + times(20, "e\u0301"), 22},
  };
  for (const auto& [characters, count] : cases) {
    const JsonString string = json("{\"a\":\"" + characters + "\"}").findString("a").value();
    EXPECT_FALSE(string.hasMoreCharactersThan(count)) << characters;
    EXPECT_TRUE(count == 0 || string.hasMoreCharactersThan(count - 1)) << characters;
    EXPECT_FALSE(string.hasFewerCharactersThan(count)) << characters;
    EXPECT_TRUE(string.hasFewerCharactersThan(count + 1)) << characters;
  }
}

TEST(Json, IndentedTextSortsKeysByBytesWithoutRepeats) {
  EXPECT_EQ(
      indentedJson(json(R"({"é":[ ],"a/b":[1,{}],"B":1,"\u0042":"\n\u002f\u00e9"})").asValue()),
      "{\n  \"B\": \"\\n/é\",\n  \"a/b\": [\n    1,\n    {}\n  ],\n  \"é\": []\n}");
}

/// The whole text. Its pieces and its size must agree.
std::string whole(const JsonText& text) {
  std::string joined;
  for (const std::string_view piece : text.pieces()) joined += piece;
  EXPECT_EQ(joined, text.str());
  EXPECT_EQ(joined.size(), text.size());
  return joined;
}

TEST(JsonTexts, AreMadeOfAnyJson) {
  const JsonObject came = json(R"({"a\u002Fb":[1.0, {"\u0063":null}]})");
  JsonText text{{"text", "\"\\\b\f\n\r\t\x01/é\x7F" + times(40, "x") + "\n"},
                {"numbers", JsonText::arrayOf(std::vector<std::int64_t>{0, -1, INT64_MIN})},
                {"nothing", nullptr},
                {"came", came},
                {"\"\n", JsonText{{"yes", true}, {"part", *came.find("a/b")}}}};
  text.set("empty", JsonText::arrayOf(std::vector{JsonText::object(), JsonText::array()}));
  EXPECT_EQ(whole(text), R"({"text":"\"\\\b\f\n\r\t\u0001/é)"
                         "\x7F" +
                             times(40, "x") +
                             R"(\n","numbers":[0,-1,-9223372036854775808],"nothing":null,)"
                             R"("came":{"a\u002Fb":[1.0,{"\u0063":null}]},)"
                             R"("\"\n":{"yes":true,"part":[1.0,{"\u0063":null}]},)"
                             R"("empty":[{},[]]})");
}

TEST(JsonTexts, ReferToLongValuesAndKeepThemAlive) {
  // Just below and at the length from which a value is referred to.
  for (const std::size_t length : {16'383U, 16'384U}) {
    SCOPED_TRACE(length);
    const std::string came = "[\"" + times(length - 4, "x") + "\"]";
    auto document = parseJson(came);
    const std::weak_ptr<const JsonDocument> kept(document);
    const char* const bytes = document->root().text().data();
    const auto ours = std::make_shared<const std::string>("{\"c\":\"" + times(20'000, "c") + "\"}");
    JsonText text{{"first", document->root()}};
    text.set("second", 2);
    JsonText outer = JsonText::array();
    outer.add(document->root());
    document.reset();
    outer.add(text);
    outer.add(JsonText::ofJson(ours));
    outer.add(std::move(text));
    outer.add(true);
    const std::string inner = "{\"first\":" + came + ",\"second\":2}";
    std::string all = "[";
    for (const std::string& each : {came, inner, *ours, inner}) all.append(each).append(",");
    EXPECT_EQ(whole(outer), all.append("true]"));
    const bool refers = length >= 16'384;
    EXPECT_EQ(!kept.expired(), refers);
    EXPECT_EQ(outer.pieces().at(1).data() == bytes, refers);
    outer = JsonText();
    EXPECT_TRUE(kept.expired());
  }
}

TEST(JsonTexts, TakeMembersFromAnotherObject) {
  const std::string longText = "\"" + times(20'000, "为") + "\"";
  struct MembersCase {
    std::string from, members;
    std::vector<std::string_view> except = {};
  };
  const MembersCase cases[] = {
      {"{ }", "", {"a"}},
      {R"({ "a" : 1 , "b" : [2, {"c":3}] , "d":{} })", R"("a":1,"b":[2,{"c":3}],"d":{})"},
      {R"({"a":[1],"b":2,"c":3})", R"("b":2,"c":3)", {"a"}},
      {R"({"a":1,"b":{"a":2},"c":3})", R"("a":1,"c":3)", {"b", "x"}},
      {R"({"a":1,"b":2,"c":[3]})", R"("a":1,"b":2)", {"c"}},
      {R"({"a":1,"b":2})", "", {"b", "a"}},
      {R"({"a":1,"b":2,"a":3,"c":4,"\u0062":5})", R"("a":3,"\u0062":5,"c":4)"},
      {R"({"b":1,"a":2,"\u0062":3})", R"("a":2)", {"b"}},
      {"{\"a\":" + longText + ",\"b\":0,\"c\":" + longText + "}",
       "\"a\":" + longText + ",\"c\":" + longText,
       {"b"}},
  };
  for (const auto& [from, members, except] : cases) {
    for (const bool isEmpty : {true, false}) {
      auto document = parseJson(from);
      JsonText text = JsonText::object();
      if (!isEmpty) text.set("before", 0);
      text.setMembersOf(document->object(), except);
      document.reset();
      if (!isEmpty) text.set("after", 1);
      const std::string separated = members.empty() ? members : members + ",";
      EXPECT_EQ(whole(text),
                isEmpty ? "{" + members + "}" : R"({"before":0,)" + separated + R"("after":1})")
          << from.substr(0, 100);
    }
  }
}

TEST(JsonTexts, AreNeverMadeOfTextThatIsNotUtf8) {
  EXPECT_THROW(JsonText("/tmp/\xFF"), JsonError);
  EXPECT_THROW((JsonText{{"\xED\xA0\x80", 1}}), JsonError);
}

}  // namespace
}  // namespace quillmere
