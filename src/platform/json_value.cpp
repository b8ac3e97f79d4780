#include "platform/json_value.hpp"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <numeric>

namespace quillmere {

namespace {

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

/// From how many members on sorting finds repeated keys faster than comparing each with each.
constexpr std::size_t manyMembers = 16;

}  // namespace

JsonNumber::JsonNumber(std::int64_t value) : digits(std::to_string(value)) {}

JsonNumber JsonNumber::fromText(std::string text) {
  JsonNumber number;
  number.digits = std::move(text);
  return number;
}

double JsonNumber::value() const {
  return std::strtod(digits.c_str(), nullptr);
}

std::optional<std::int64_t> JsonNumber::integer() const {
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

JsonObject::JsonObject(std::initializer_list<JsonMember> initial) {
  members.reserve(initial.size());
  for (const JsonMember& member : initial) set(member.key, member.value);
}

JsonObject JsonObject::fromMembers(std::vector<JsonMember> given) {
  JsonObject object;
  if (given.size() <= manyMembers) {
    bool repeats = false;
    for (std::size_t i = 1; i < given.size() && !repeats; ++i) {
      repeats = std::any_of(given.begin(), given.begin() + static_cast<std::ptrdiff_t>(i),
                            [&](const JsonMember& earlier) { return earlier.key == given[i].key; });
    }
    if (!repeats) {
      object.members = std::move(given);
      return object;
    }
  }

  // Sorted, not hashed: whoever sends the text could choose keys that all have one hash.
  std::vector<std::size_t> order(given.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  std::ranges::stable_sort(order, {},
                           [&](std::size_t i) -> const std::string& { return given[i].key; });
  std::vector<bool> isRepeated(given.size(), false);
  for (std::size_t i = 1, first = 0; i < order.size(); ++i) {
    JsonMember& place = given[order[first]];
    JsonMember& later = given[order[i]];
    if (place.key == later.key) {
      place.value = std::move(later.value);
      isRepeated[order[i]] = true;
    } else {
      first = i;
    }
  }
  object.members.reserve(given.size());
  for (std::size_t i = 0; i < given.size(); ++i) {
    if (!isRepeated[i]) object.members.push_back(std::move(given[i]));
  }
  return object;
}

bool holdsOnlyStrings(const JsonArray& array) {
  return std::ranges::all_of(
      array, [](const JsonValue& element) { return element.asString() != nullptr; });
}

const JsonValue* JsonObject::find(std::string_view key) const {
  for (const JsonMember& member : members) {
    if (member.key == key) return &member.value;
  }
  return nullptr;
}

JsonValue* JsonObject::find(std::string_view key) {
  return const_cast<JsonValue*>(std::as_const(*this).find(key));
}

const std::string* JsonObject::findString(std::string_view key) const {
  const JsonValue* value = find(key);
  return value ? value->asString() : nullptr;
}

const JsonArray* JsonObject::findArray(std::string_view key) const {
  const JsonValue* value = find(key);
  return value ? value->asArray() : nullptr;
}

const JsonObject* JsonObject::findObject(std::string_view key) const {
  const JsonValue* value = find(key);
  return value ? value->asObject() : nullptr;
}

const JsonNumber* JsonObject::findNumber(std::string_view key) const {
  const JsonValue* value = find(key);
  return value ? value->asNumber() : nullptr;
}

std::optional<bool> JsonObject::findBoolean(std::string_view key) const {
  const JsonValue* value = find(key);
  return value ? value->asBoolean() : std::nullopt;
}

void JsonObject::set(std::string_view key, JsonValue value) {
  if (JsonValue* present = find(key)) {
    *present = std::move(value);
  } else {
    members.push_back({std::string(key), std::move(value)});
  }
}

}  // namespace quillmere
