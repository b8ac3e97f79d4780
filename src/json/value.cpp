// A view reads its value from the token and, if needed, from the text. Nothing is decoded in
// advance, since we pass most values on without looking at them.
#include "json/value.hpp"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <map>
#include <memory>

#include "json/document.hpp"
#include "platform/text.hpp"

namespace quillmere {

namespace {

using Kind = JsonDocument::Kind;

/// A number taken apart: (negative ? -1 : 1) * digits * 10^exponent, where `digits` has neither
/// leading nor trailing zeros and is empty for zero.
struct Decimal {
  bool negative = false;
  std::string digits;
  std::int64_t exponent = 0;
};

Decimal takeApart(std::string_view text) {
  Decimal result;
  if (text.starts_with('-')) {
    result.negative = true;
    text.remove_prefix(1);
  }
  const std::size_t exponentAt = text.find_first_of("eE");
  if (exponentAt != std::string_view::npos) {
    std::string_view exponent = text.substr(exponentAt + 1);
    if (exponent.starts_with('+')) exponent.remove_prefix(1);
    // The parser has refused exponents past 31 bits, so this cannot fail, nor the sums below
    // overflow.
    std::from_chars(exponent.data(), exponent.data() + exponent.size(), result.exponent);
    text = text.substr(0, exponentAt);
  }
  const std::size_t point = text.find('.');
  result.digits = text.substr(0, point);
  if (point != std::string_view::npos) {
    const std::string_view fraction = text.substr(point + 1);
    result.digits += fraction;
    result.exponent -= static_cast<std::int64_t>(fraction.size());
  }

  const std::size_t last = result.digits.find_last_not_of('0');
  if (last == std::string::npos) return {};
  result.exponent += static_cast<std::int64_t>(result.digits.size() - last - 1);
  result.digits.erase(last + 1);
  result.digits.erase(0, result.digits.find_first_not_of('0'));
  return result;
}

/// The four hexadecimal digits at the start of `text`, which must be there.
char32_t hexadecimal(std::string_view text) {
  unsigned value = 0;
  std::from_chars(text.data(), text.data() + 4, value, 16);
  return value;
}

/// The characters of the string with `text` between its quotes. The parser has checked the escapes.
std::string decodedString(std::string_view text) {
  std::string decoded;
  decoded.reserve(text.size());
  for (;;) {
    const std::size_t plain = std::min(text.find('\\'), text.size());
    decoded += text.substr(0, plain);
    text.remove_prefix(plain);
    if (text.empty()) return decoded;

    constexpr std::string_view letters = "bfnrt";
    constexpr std::string_view characters = "\b\f\n\r\t";
    const char letter = text[1];
    std::size_t length = 2;
    if (letter == 'u') {
      constexpr char32_t highSurrogates = 0xD800;
      constexpr char32_t lowSurrogates = 0xDC00;
      char32_t character = hexadecimal(text.substr(2));
      length = 6;
      if (character >= highSurrogates && character < lowSurrogates) {
        const char32_t low = hexadecimal(text.substr(length + 2));
        character = 0x10000 + ((character - highSurrogates) << 10U) + (low - lowSurrogates);
        length *= 2;
      }
      appendUtf8(decoded, character);
    } else {
      const std::size_t at = letters.find(letter);
      decoded += at == std::string_view::npos ? letter : characters[at];
    }
    text.remove_prefix(length);
  }
}

/// Whether `raw` may have more than `count` characters once it is decoded. A byte is at most one
/// character, and so is an escape, which has at least two bytes and at most two backslashes.
bool mayHaveMoreCharactersThan(std::string_view raw, std::size_t count) {
  const auto backslashes = static_cast<std::size_t>(std::ranges::count(raw, '\\'));
  return raw.size() - backslashes / 2 > count;
}

/// Whether the string at a token is `text`. Copies it only if it has escapes.
bool isStringOf(const JsonDocument& document, std::uint32_t token, std::string_view text) {
  constexpr std::size_t quotes = 2;
  if (document.tokenAt(token).kind() == Kind::plainString) {
    return document.tokenAt(token).length() == text.size() + quotes &&
           document.textOf(token).substr(1, text.size()) == text;
  }
  // Decoding makes a string shorter, but not below a sixth of its length. So the length and the
  // part before the first escape rule out most strings, and we decode only the rest.
  constexpr std::size_t longestEscape = 6;
  const std::string_view raw =
      document.textOf(token).substr(1, document.tokenAt(token).length() - quotes);
  const std::string_view plain = raw.substr(0, raw.find('\\'));
  if (text.size() >= raw.size() || text.size() * longestEscape < raw.size()) return false;
  return text.starts_with(plain) && decodedString(raw) == text;
}

const JsonDocument& emptyObject() {
  // Never destroyed: workers may use it while the process ends.
  static const auto& document = *new std::shared_ptr<const JsonDocument>(parseJson("{}"));
  return *document;
}

}  // namespace

std::string_view JsonString::view() const {
  if (!hasEscapes) return raw;
  if (!decoded) decoded = decodedString(raw);
  return *decoded;
}

bool JsonString::hasMoreCharactersThan(std::size_t count) const {
  if (count == 0) return !raw.empty();
  if (hasEscapes && !mayHaveMoreCharactersThan(raw, count)) return false;
  return quillmere::hasMoreCharactersThan(view(), count);
}

double JsonNumber::value() const {
  // Not `from_chars`, which does not return infinity for a number that is too large. The program
  // sets no locale, so the decimal separator is a point.
  return std::strtod(std::string(digits).c_str(), nullptr);
}

std::optional<std::int64_t> JsonNumber::integer() const {
  // A 64-bit integer has at most 19 digits. Refuse larger exponents before writing zeros.
  constexpr std::int64_t mostDigits = 19;
  const Decimal decimal = takeApart(digits);
  if (decimal.digits.empty()) return 0;
  if (decimal.exponent < 0 || decimal.exponent > mostDigits) return std::nullopt;
  std::string whole = decimal.negative ? "-" : "";
  whole += decimal.digits;
  whole.append(static_cast<std::size_t>(decimal.exponent), '0');

  std::int64_t result = 0;
  const char* end = whole.data() + whole.size();
  const auto [stop, error] = std::from_chars(whole.data(), end, result);
  if (error != std::errc() || stop != end) return std::nullopt;
  return result;
}

std::string JsonNumber::canonicalText() const {
  const Decimal decimal = takeApart(digits);
  if (decimal.digits.empty()) return "0";
  std::string text = decimal.negative ? "-" : "";
  text += decimal.digits;
  if (decimal.exponent != 0) text += "e" + std::to_string(decimal.exponent);
  return text;
}

bool JsonValue::isNull() const {
  return document->tokenAt(token).kind() == Kind::null;
}

std::optional<bool> JsonValue::asBoolean() const {
  if (document->tokenAt(token).kind() != Kind::boolean) return std::nullopt;
  return text() == "true";
}

std::optional<JsonNumber> JsonValue::asNumber() const {
  if (document->tokenAt(token).kind() != Kind::number) return std::nullopt;
  return JsonNumber(text());
}

std::optional<JsonString> JsonValue::asString() const {
  if (!isString()) return std::nullopt;
  const std::string_view quoted = text();
  return JsonString(quoted.substr(1, quoted.size() - 2),
                    document->tokenAt(token).kind() == Kind::escapedString);
}

bool JsonValue::isString() const {
  const Kind kind = document->tokenAt(token).kind();
  return kind == Kind::plainString || kind == Kind::escapedString;
}

std::optional<JsonArray> JsonValue::asArray() const {
  if (document->tokenAt(token).kind() != Kind::array) return std::nullopt;
  return JsonArray(*this);
}

std::optional<JsonObject> JsonValue::asObject() const {
  if (document->tokenAt(token).kind() != Kind::object) return std::nullopt;
  return JsonObject(*this);
}

std::string_view JsonValue::text() const {
  return document->textOf(token);
}

std::size_t JsonArray::size() const {
  return document->tokenAt(document->next(token) - 1).count();
}

JsonIterator<JsonValue> JsonArray::end() const {
  return {*document, document->next(token) - 1};
}

template <>
JsonIterator<JsonValue>& JsonIterator<JsonValue>::operator++() {
  token = document->next(token);
  return *this;
}

template <>
JsonIterator<JsonMember>& JsonIterator<JsonMember>::operator++() {
  token = document->next(token + 1);
  return *this;
}

std::string_view JsonMember::text() const {
  const std::string_view key = keyString.text();
  const std::string_view value = this->value().text();
  return {key.data(), static_cast<std::size_t>(value.data() + value.size() - key.data())};
}

JsonObject::JsonObject() : JsonValue(emptyObject(), 0) {}

JsonIterator<JsonMember> JsonObject::end() const {
  return {*document, document->next(token) - 1};
}

std::optional<JsonValue> JsonObject::find(std::string_view key) const {
  std::uint32_t found = 0;
  const std::uint32_t last = document->next(token) - 1;
  // Search to the end: among equal keys the last one counts.
  for (std::uint32_t member = token + 1; member != last; member = document->next(member + 1)) {
    if (isStringOf(*document, member, key)) found = member + 1;
  }
  return found == 0 ? std::nullopt : std::optional(JsonValue(*document, found));
}

std::vector<JsonMember> JsonObject::distinctMembers() const {
  std::vector<JsonMember> members(begin(), end());
  const auto isLast = [this](const JsonMember& member) {
    return find(member.key().view())->place() == member.value().place();
  };
  // For a few members look-ups are faster than an index, and keys are rarely repeated.
  constexpr std::size_t fewMembers = 16;
  if (members.size() <= fewMembers && std::ranges::all_of(members, isLast)) return members;

  // A sorted map, not a hash table: a sender could choose keys that all have the same hash.
  std::map<std::string, std::size_t, std::less<>> places;
  std::vector<JsonMember> distinct;
  for (const JsonMember& member : members) {
    const auto [place, isNew] =
        places.try_emplace(std::string(member.key().view()), distinct.size());
    if (isNew) {
      distinct.push_back(member);
    } else {
      distinct[place->second] = member;
    }
  }
  return distinct;
}

bool holdsOnlyStrings(const JsonArray& array) {
  return std::ranges::all_of(array, [](JsonValue element) { return element.isString(); });
}

}  // namespace quillmere
