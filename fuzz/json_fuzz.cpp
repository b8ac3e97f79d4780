// A document holds what its text says, checked against a second, independent reader; and the texts
// we make from it to pass on say the same.
#include <algorithm>
#include <map>
#include <vector>

#include "fuzz_support.hpp"
#include "json/document.hpp"
#include "json/writer.hpp"
#include "platform/text.hpp"

namespace quillmere {
namespace {

/// A text that is the same for all spellings of a string and differs for different strings.
std::string canonicalString(std::string_view text) {
  return std::to_string(text.size()) + "\"" + std::string(text);
}

/// Reads valid JSON by the grammar alone, and returns one text for all spellings of the same value;
/// numbers keep their spelling. Throws `std::out_of_range` if a text ends too early.
struct Reader {
  std::string_view rest;
  bool isCompact = true;

  std::string value() {
    std::string text;
    if (take('"')) return canonicalString(string());
    if (take('{')) return "{" + members() + "}";
    if (take('[')) {
      for (; !take(']'); take(',')) text += value() + ",";
      return "[" + text + "]";
    }
    while (std::string_view(",]} \t\n\r").find(rest.at(0)) == std::string_view::npos)
      text += next();
    return text;
  }

 private:
  char next() {
    const char c = rest.at(0);
    rest.remove_prefix(1);
    return c;
  }
  bool take(char c) {
    const std::size_t blanks = std::min(rest.find_first_not_of(" \t\n\r"), rest.size());
    isCompact &= blanks == 0;
    rest.remove_prefix(blanks);
    return rest.at(0) == c && next() == c;
  }

  std::string members() {
    std::vector<std::string> keys;
    std::map<std::string, std::string> values;
    for (; !take('}'); take(',')) {
      take('"');
      const std::string key = string();
      take(':');
      if (!values.contains(key)) keys.push_back(key);
      values[key] = value();
    }
    std::string text;
    for (const std::string& key : keys) text += canonicalString(key) + ":" + values[key] + ",";
    return text;
  }

  char32_t hexadecimal() {
    const std::string digits(rest.substr(0, 4));
    rest.remove_prefix(4);
    return static_cast<char32_t>(std::stoul(digits, nullptr, 16));
  }

  std::string string() {
    std::string text;
    for (char c = next(); c != '"'; c = next()) {
      if (c != '\\') {
        text += c;
      } else if ((c = next()) != 'u') {
        const std::size_t place = std::string_view("bfnrt").find(c);
        text += place == std::string_view::npos ? c : "\b\f\n\r\t"[place];
        isCompact &= c != '/';
      } else {
        char32_t character = hexadecimal();
        if (character >= 0xD800 && character < 0xE000) {
          rest.remove_prefix(2);
          character = 0x10000 + (character - 0xD800) * 0x400 + hexadecimal() - 0xDC00;
        }
        appendUtf8(text, character);
      }
    }
    return text;
  }
};

/// The same text, made from a document.
std::string canonical(const JsonValue& value) {
  if (const auto string = value.asString()) return canonicalString(string->view());
  std::string text;
  if (const auto array = value.asArray()) {
    for (const JsonValue element : *array) text += canonical(element) + ",";
    demand(std::distance(array->begin(), array->end()) == static_cast<long>(array->size()));
    return "[" + text + "]";
  }
  const auto object = value.asObject();
  if (!object) return std::string(value.text());
  for (const JsonMember& member : object->distinctMembers()) {
    const JsonString key = member.key();
    text += canonicalString(key.view()) + ":" + canonical(object->find(key.view()).value()) + ",";
  }
  return "{" + text + "}";
}

void checkPassedOn(std::string_view text, const std::string& meant) {
  Reader reader{text};
  demand(reader.value() == meant);
  demand(reader.isCompact && reader.rest.empty());
  demand(parseJson(text)->root().text() == text);
}

/// Takes the object apart and rebuilds it: all members but the last, then the last one by itself.
void checkWritten(const JsonObject& object, const std::string& meant) {
  const std::vector<JsonMember> members = object.distinctMembers();
  if (members.empty()) return;
  const JsonString key = members.back().key();
  const std::string_view last = key.view();
  JsonText text = JsonText::object();
  text.setMembersOf(object, {&last, 1});
  text.set(last, members.back().value());
  checkPassedOn(text.str(), meant);
}

}  // namespace
}  // namespace quillmere

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace quillmere;
  const std::string_view text = textOf(data, size);
  const bool isText = withUtf8Repaired(text) == text;
  try {
    const auto document = parseJson(text);
    const JsonValue root = document->root();
    const std::string meant = Reader{text}.value();
    demand(isText && canonical(root) == meant);
    checkPassedOn(JsonText(root).str(), meant);
    if (const auto object = root.asObject()) checkWritten(*object, meant);
    const std::string indented = indentedJson(root);
    demand(indentedJson(parseJson(indented)->root()) == indented);
  } catch (const JsonError& error) {
    demand((error.kind == JsonError::Kind::notUtf8) == !isText);
  }
  return 0;
}
