#include "platform/json_writer.hpp"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/text.hpp"

namespace quillmere {

namespace {

/// 0 for an ASCII character that needs no escape, else 1.
constexpr unsigned special(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return unsigned{byte < 0x20} | unsigned{byte >= 0x80} | unsigned{c == '"'} | unsigned{c == '\\'};
}

/// How many bytes at the start are ASCII that needs no escape. Blocks first: the compiler turns the
/// inner loop into vector code, which makes long clean texts, screenshots above all, cost little.
/// Bytes or-ed together, because g++ 12 does not see it in a `bool`: 9 GB/s against 1.
std::size_t cleanRun(std::string_view text) {
  constexpr std::size_t block = 32;
  std::size_t at = 0;
  for (; at + block <= text.size(); at += block) {
    unsigned char found = 0;
    for (std::size_t i = 0; i < block; ++i) {
      found = static_cast<unsigned char>(found | special(text[at + i]));
    }
    if (found != 0) break;
  }
  while (at < text.size() && special(text[at]) == 0) ++at;
  return at;
}

class Writer {
 public:
  enum class Style { compact, indented };

  explicit Writer(Style style) : indented(style == Style::indented) {}

  /// Makes room in one piece from the start, escapes included as a rule: a text that grows is
  /// copied at each step, and the largest ones would need a half more memory than they have to.
  void expect(std::size_t size) { text.reserve(withEscapes(size)); }

  /// From now on, leaves long clean runs where they are.
  void borrowFrom(std::size_t size) { shortestBorrowed = size; }

  void write(const JsonValue& value) {
    if (const auto* object = value.asObject()) {
      write(*object);
    } else if (const auto* array = value.asArray()) {
      write(*array);
    } else if (const auto* string = value.asString()) {
      write(std::string_view(*string));
    } else if (const auto* number = value.asNumber()) {
      text += number->text();
    } else if (const auto boolean = value.asBoolean()) {
      text += *boolean ? "true" : "false";
    } else {
      text += "null";
    }
  }

  void write(const JsonObject& object) {
    open('{');
    bool first = true;
    const auto writeMember = [&](const JsonMember& member) {
      separate(first);
      write(std::string_view(member.key));
      text += indented ? ": " : ":";
      write(member.value);
    };
    if (indented) {
      for (const JsonMember* member : sorted(object)) writeMember(*member);
    } else {
      for (const JsonMember& member : object) writeMember(member);
    }
    close('}', first);
  }

  [[nodiscard]] std::string take() { return std::move(text); }
  [[nodiscard]] std::vector<BorrowedRun> takeBorrowed() { return std::move(borrowed); }

 private:
  static std::size_t withEscapes(std::size_t size) { return size + size / 8; }

  void write(const JsonArray& array) {
    open('[');
    bool first = true;
    for (const JsonValue& element : array) {
      separate(first);
      write(element);
    }
    close(']', first);
  }

  void write(std::string_view string) {
    bool hasRoom = string.size() < shortestBorrowed;
    text += '"';
    while (!string.empty()) {
      const std::size_t clean = cleanRun(string);
      if (clean >= shortestBorrowed) {
        borrowed.push_back({text.size(), string.substr(0, clean)});
      } else {
        if (!std::exchange(hasRoom, true)) text.reserve(text.size() + withEscapes(string.size()));
        text += string.substr(0, clean);
      }
      string.remove_prefix(clean);
      if (!string.empty()) string.remove_prefix(writeSpecial(string));
    }
    text += '"';
  }

  /// Writes the character at the start of `string`, which is no clean one; returns its length in
  /// bytes.
  std::size_t writeSpecial(std::string_view string) {
    const char c = string.front();
    if (static_cast<unsigned char>(c) >= 0x80) {
      const std::size_t length = utf8CharacterLength(string);
      if (length == 0) throw JsonError("A text to be written as JSON is not valid UTF-8.");
      text += string.substr(0, length);
      return length;
    }
    constexpr std::string_view hexDigits = "0123456789abcdef";
    switch (c) {
      case '"':
        text += "\\\"";
        break;
      case '\\':
        text += "\\\\";
        break;
      case '\b':
        text += "\\b";
        break;
      case '\f':
        text += "\\f";
        break;
      case '\n':
        text += "\\n";
        break;
      case '\r':
        text += "\\r";
        break;
      case '\t':
        text += "\\t";
        break;
      default:
        text += "\\u00";
        text += hexDigits[static_cast<unsigned char>(c) >> 4U];
        text += hexDigits[static_cast<unsigned char>(c) & 0xFU];
    }
    return 1;
  }

  static std::vector<const JsonMember*> sorted(const JsonObject& object) {
    std::vector<const JsonMember*> members;
    members.reserve(object.size());
    for (const JsonMember& member : object) members.push_back(&member);
    std::ranges::sort(members, {}, &JsonMember::key);
    return members;
  }

  void open(char bracket) {
    text += bracket;
    ++depth;
  }

  void separate(bool& first) {
    if (!first) text += ',';
    first = false;
    if (indented) newLine();
  }

  void close(char bracket, bool isEmpty) {
    --depth;
    if (indented && !isEmpty) newLine();
    text += bracket;
  }

  void newLine() {
    text += '\n';
    text.append(2 * depth, ' ');
  }

  const bool indented;
  std::size_t depth = 0;
  std::string text;
  std::size_t shortestBorrowed = std::string::npos;
  std::vector<BorrowedRun> borrowed;
};

constexpr std::size_t quotes = 2;
constexpr std::size_t brackets = 2;

std::size_t unescapedSize(const JsonValue& value, std::size_t shortestLeftOut);

/// How long the compact text is if nothing in it needs an escape, without its long strings.
std::size_t unescapedSize(const JsonObject& object, std::size_t shortestLeftOut) {
  std::size_t size = brackets;
  for (const auto& [key, value] : object) {
    size += key.size() + quotes + sizeof(":,") - 1 + unescapedSize(value, shortestLeftOut);
  }
  return size;
}

std::size_t unescapedSize(const JsonValue& value, std::size_t shortestLeftOut) {
  constexpr std::size_t longestWord = 5;
  if (const auto* string = value.asString()) {
    return quotes + (string->size() < shortestLeftOut ? string->size() : 0);
  }
  if (const auto* number = value.asNumber()) return number->text().size();
  if (const auto* object = value.asObject()) return unescapedSize(*object, shortestLeftOut);
  const auto* array = value.asArray();
  if (array == nullptr) return longestWord;
  std::size_t size = brackets;
  for (const JsonValue& element : *array) {
    size += unescapedSize(element, shortestLeftOut) + sizeof(",") - 1;
  }
  return size;
}

template <typename Json>
std::string compact(const Json& json) {
  Writer writer(Writer::Style::compact);
  writer.expect(unescapedSize(json, std::string::npos));
  writer.write(json);
  return writer.take();
}

}  // namespace

std::string compactJson(const JsonValue& value) {
  return compact(value);
}
std::string compactJson(const JsonObject& object) {
  return compact(object);
}

JsonText::JsonText(const JsonObject& object, std::size_t shortestBorrowed) {
  Writer writer(Writer::Style::compact);
  writer.expect(unescapedSize(object, shortestBorrowed));
  writer.borrowFrom(shortestBorrowed);
  writer.write(object);
  copied = writer.take();
  borrowed = writer.takeBorrowed();
}

std::size_t JsonText::size() const {
  std::size_t size = copied.size();
  for (const BorrowedRun& each : borrowed) size += each.run.size();
  return size;
}

std::vector<std::string_view> JsonText::pieces() const& {
  std::vector<std::string_view> pieces;
  std::size_t at = 0;
  for (const BorrowedRun& each : borrowed) {
    pieces.push_back(std::string_view(copied).substr(at, each.at - at));
    pieces.push_back(each.run);
    at = each.at;
  }
  pieces.push_back(std::string_view(copied).substr(at));
  return pieces;
}

std::string indentedJson(const JsonObject& object) {
  Writer writer(Writer::Style::indented);
  writer.write(object);
  return writer.take();
}

}  // namespace quillmere
