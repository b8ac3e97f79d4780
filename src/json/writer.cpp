// A text is a string and a list of runs. A run is a part of the text that lies elsewhere, in a
// document or in a text of ours; its place is a position in the string. A text that is added to
// another one brings its runs along, so no byte of a long run is touched until it is written.
#include "json/writer.hpp"

#include <algorithm>
#include <array>
#include <utility>

#include "platform/text.hpp"

namespace quillmere {

namespace {

/// From this length on, a reference costs less than a copy. Referring to shorter pieces would also
/// produce more of them than one system call takes.
constexpr std::size_t longBytes = 16'384;

/// 0 for a character that needs no escape (RFC 8259, section 7), else 1.
constexpr unsigned needsEscape(char c) {
  return unsigned{static_cast<unsigned char>(c) < 0x20} | unsigned{c == '"'} | unsigned{c == '\\'};
}

/// How many bytes at the start need no escape. Blocks first: the compiler turns the inner loop into
/// vector code. We OR bytes, because g++ 12 does not vectorise the loop with a `bool`.
std::size_t plainRun(std::string_view text) {
  constexpr std::size_t block = 32;
  std::size_t at = 0;
  for (; at + block <= text.size(); at += block) {
    unsigned char found = 0;
    for (std::size_t i = 0; i < block; ++i) {
      found = static_cast<unsigned char>(found | needsEscape(text[at + i]));
    }
    if (found != 0) break;
  }
  while (at < text.size() && needsEscape(text[at]) == 0) ++at;
  return at;
}

void appendEscape(std::string& text, char c) {
  constexpr std::string_view characters = "\"\\\b\f\n\r\t";
  constexpr std::string_view letters = "\"\\bfnrt";
  constexpr std::string_view hexDigits = "0123456789abcdef";
  text += '\\';
  if (const std::size_t at = characters.find(c); at != std::string_view::npos) {
    text += letters[at];
  } else {
    text += "u00";
    text += hexDigits[static_cast<unsigned char>(c) >> 4U];
    text += hexDigits[static_cast<unsigned char>(c) & 0xFU];
  }
}

/// Appends `string` as part of the content of a JSON string. Throws `JsonError` when it is not
/// UTF-8.
void appendEscaped(std::string& text, std::string_view string) {
  if (!isUtf8(string)) {
    throw JsonError(JsonError::Kind::notUtf8, "A text to be written as JSON is not valid UTF-8.");
  }
  while (!string.empty()) {
    const std::size_t plain = plainRun(string);
    text += string.substr(0, plain);
    string.remove_prefix(plain);
    if (string.empty()) break;
    appendEscape(text, string.front());
    string.remove_prefix(1);
  }
}

/// How `appendQuoted` writes a byte: with how many backslashes before which letter.
struct EscapedByte {
  char letter;
  unsigned char backslashes;
};
constexpr auto escapedBytes = [] {
  std::array<EscapedByte, 256> bytes{};
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i].letter = static_cast<char>(i);
  bytes['"'] = {'"', 1};
  bytes['\\'] = {'\\', 1};
  bytes['\n'] = {'n', 1};
  bytes['\t'] = {'t', 1};
  return bytes;
}();

/// Appends `plain` as part of the content of a JSON string. Its only control characters are tabs
/// and line feeds; JSON text has none at all. Every few bytes one needs an escape, so the loop does
/// not branch on the bytes.
void appendQuoted(std::string& text, std::string_view plain) {
  std::array<char, 8'192> block;
  while (!plain.empty()) {
    const std::string_view part = plain.substr(0, block.size() / 2);
    plain.remove_prefix(part.size());
    char* to = block.data();
    for (const char c : part) {
      const EscapedByte byte = escapedBytes[static_cast<unsigned char>(c)];
      *to = '\\';
      to += byte.backslashes;
      *to++ = byte.letter;
    }
    text.append(block.data(), to);
  }
}

/// Appends a value that is neither an array nor an object. A string is rewritten with only the
/// escapes it needs, so that a reader of the text sees its characters.
void appendScalar(std::string& text, const JsonValue& value) {
  const bool hasEscapes = value.isString() && value.text().find('\\') != std::string_view::npos;
  text += hasEscapes ? JsonText(*value.asString()).str() : std::string(value.text());
}

void appendIndented(std::string& text, const JsonValue& value, std::size_t depth) {
  const auto newLine = [&text](std::size_t level) {
    text += '\n';
    text.append(2 * level, ' ');
  };
  bool isEmpty = true;
  const auto separate = [&] {
    if (!isEmpty) text += ',';
    isEmpty = false;
    newLine(depth + 1);
  };
  if (const auto array = value.asArray()) {
    text += '[';
    for (const JsonValue& element : *array) {
      separate();
      appendIndented(text, element, depth + 1);
    }
    if (!isEmpty) newLine(depth);
    text += ']';
  } else if (const auto object = value.asObject()) {
    std::vector<JsonMember> members = object->distinctMembers();
    std::ranges::sort(members, [](const JsonMember& left, const JsonMember& right) {
      return left.key().view() < right.key().view();
    });
    text += '{';
    for (const JsonMember& member : members) {
      separate();
      appendScalar(text, member.keyValue());
      text += ": ";
      appendIndented(text, member.value(), depth + 1);
    }
    if (!isEmpty) newLine(depth);
    text += '}';
  } else {
    appendScalar(text, value);
  }
}

}  // namespace

// A text is always valid JSON: an object or array keeps its closing bracket, and adding a member or
// element removes the bracket and puts it back.

JsonText::JsonText(std::nullptr_t) : copied("null") {}

JsonText::JsonText(std::string_view string) {
  appendString(string);
  shareCopied();
}

JsonText::JsonText(const JsonValue& value) {
  append(value.text(), value.holder().shared_from_this());
}

JsonText::JsonText(std::initializer_list<JsonField> fields) : JsonText(object()) {
  for (const JsonField& field : fields) set(field.key, std::move(field.value));
}

JsonText JsonText::object() {
  JsonText text;
  text.copied = "{}";
  return text;
}

JsonText JsonText::array() {
  JsonText text;
  text.copied = "[]";
  return text;
}

JsonText JsonText::ofJson(std::string_view json) {
  JsonText text;
  text.copied = json;
  text.shareCopied();
  return text;
}

JsonText JsonText::ofJson(const std::shared_ptr<const std::string>& json) {
  JsonText text;
  text.copied.clear();
  text.append(*json, json);
  return text;
}

JsonText JsonText::quoted(const JsonValue& value, std::span<const Replacement> replaced,
                          std::string_view before, std::string_view after) {
  std::string_view left = value.text();
  std::size_t size = before.size() + left.size() + after.size();
  for (const auto& [old, by] : replaced) size -= old.text().size() - by.size();
  // Reserve it all at once: a large text would otherwise be copied each time it grows. About every
  // fifth byte of JSON is a quote.
  std::string text;
  text.reserve(size + size / 4 + 2);
  text += '"';
  appendEscaped(text, before);
  for (const auto& [replacedValue, by] : replaced) {
    const std::string_view old = replacedValue.text();
    appendQuoted(text, {left.data(), old.data()});
    appendQuoted(text, JsonText(by).str());
    left = {old.data() + old.size(), left.data() + left.size()};
  }
  appendQuoted(text, left);
  appendQuoted(text, after);
  text += '"';
  JsonText result;
  result.copied = std::move(text);
  result.shareCopied();
  return result;
}

void JsonText::set(std::string_view key, JsonText value) {
  open('{');
  appendString(key);
  copied += ':';
  append(std::move(value));
  copied += '}';
}

void JsonText::setMembersOf(const JsonObject& object, std::span<const std::string_view> except) {
  const auto holder = object.asValue().holder().shared_from_this();
  for (const JsonMember& member : object.distinctMembers()) {
    if (std::ranges::find(except, member.key().view()) != except.end()) continue;
    open('{');
    append(member.text(), holder);
    copied += '}';
  }
}

void JsonText::add(JsonText element) {
  open('[');
  append(std::move(element));
  copied += ']';
}

std::size_t JsonText::size() const {
  std::size_t size = copied.size();
  for (const Run& run : runs) size += run.text.size();
  return size;
}

std::vector<std::string_view> JsonText::pieces() const& {
  std::vector<std::string_view> pieces;
  pieces.reserve(2 * runs.size() + 1);
  std::size_t at = 0;
  for (const Run& run : runs) {
    pieces.push_back(std::string_view(copied).substr(at, run.at - at));
    pieces.push_back(run.text);
    at = run.at;
  }
  pieces.push_back(std::string_view(copied).substr(at));
  return pieces;
}

std::string JsonText::str() const {
  std::string text;
  text.reserve(size());
  for (const std::string_view piece : pieces()) text += piece;
  return text;
}

void JsonText::open(char bracket) {
  copied.pop_back();
  // A bracket that a run follows is the last byte of the string, but not of the text.
  const bool endsWithRun = !runs.empty() && runs.back().at == copied.size();
  if (endsWithRun || copied.back() != bracket) copied += ',';
}

void JsonText::append(std::string_view json, std::shared_ptr<const void> holder) {
  if (json.size() < longBytes) {
    copied += json;
  } else {
    runs.push_back({.at = copied.size(), .text = json, .holder = std::move(holder)});
  }
}

void JsonText::shareCopied() {
  if (copied.size() < longBytes) return;
  // From now on, copies of this text and texts that it is added to refer to these bytes.
  const auto whole = std::make_shared<const std::string>(std::move(copied));
  copied.clear();
  append(*whole, whole);
}

void JsonText::append(JsonText value) {
  for (Run& run : value.runs) {
    run.at += copied.size();
    runs.push_back(std::move(run));
  }
  copied += value.copied;
}

void JsonText::appendString(std::string_view string) {
  copied.reserve(copied.size() + string.size() + 2);
  copied += '"';
  appendEscaped(copied, string);
  copied += '"';
}

std::string indentedJson(const JsonValue& value) {
  std::string text;
  appendIndented(text, value, 0);
  return text;
}

}  // namespace quillmere
