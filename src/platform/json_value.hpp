// The one dynamic value that messages, arguments, payloads and schemas are made of.
#pragma once

#include <concepts>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace quillmere {

class JsonValue;
struct JsonMember;

/// A failure of the JSON layer: text that is no JSON, or a value that cannot be written as JSON.
/// `what()` is a fixed text and never echoes the input.
class JsonError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A number as its own JSON text. Nothing is lost between input and output, whatever its size: the
/// program passes numbers on and reads their value only to check them.
class JsonNumber {
 public:
  JsonNumber(std::int64_t value);

  /// Takes `text`, which must be a number by the grammar of RFC 8259, section 6.
  [[nodiscard]] static JsonNumber fromText(std::string text);

  [[nodiscard]] const std::string& text() const { return digits; }

  /// The nearest 64-bit float; infinite when the number is beyond its range.
  [[nodiscard]] double value() const;

  /// The number when it is whole and fits 64 bits, however it is spelled (`5`, `5.0`, `50e-1`).
  [[nodiscard]] std::optional<std::int64_t> integer() const;

  /// One text for all spellings of one number: its digits as a whole number without trailing zeros,
  /// and a power of ten (`1`, `1.0` and `10e-1` give `1`; `120` gives `12e1`). Exact at any length.
  [[nodiscard]] std::string canonicalText() const;

 private:
  JsonNumber() = default;
  std::string digits;
};

/// An array. Build one with `arrayOf`: a braced list that holds a single array would copy that
/// array instead of nesting it.
using JsonArray = std::vector<JsonValue>;

/// An object: members in the order in which they came or were added, each key once.
class JsonObject {
 public:
  using Iterator = std::vector<JsonMember>::const_iterator;

  JsonObject();
  JsonObject(std::initializer_list<JsonMember> initial);
  JsonObject(const JsonObject& other);
  JsonObject(JsonObject&& other) noexcept;
  JsonObject& operator=(const JsonObject& other);
  JsonObject& operator=(JsonObject&& other) noexcept;
  ~JsonObject();

  /// Takes `given` members that may repeat a key; of equal keys the last one's value counts, in the
  /// place of the first. As good as linear in the number of members, whatever the keys.
  [[nodiscard]] static JsonObject fromMembers(std::vector<JsonMember> given);

  /// The value under `key`, or null. Valid until the object changes. Linear in the number of
  /// members.
  [[nodiscard]] const JsonValue* find(std::string_view key) const;
  [[nodiscard]] JsonValue* find(std::string_view key);
  [[nodiscard]] bool contains(std::string_view key) const { return find(key) != nullptr; }

  /// The value under `key` when it is there and has the type asked for, or nothing.
  [[nodiscard]] const std::string* findString(std::string_view key) const;
  [[nodiscard]] const JsonArray* findArray(std::string_view key) const;
  [[nodiscard]] const JsonObject* findObject(std::string_view key) const;
  [[nodiscard]] const JsonNumber* findNumber(std::string_view key) const;
  [[nodiscard]] std::optional<bool> findBoolean(std::string_view key) const;

  /// Adds `key`, or replaces its value.
  void set(std::string_view key, JsonValue value);

  [[nodiscard]] bool empty() const;
  [[nodiscard]] std::size_t size() const;
  [[nodiscard]] Iterator begin() const;
  [[nodiscard]] Iterator end() const;

 private:
  std::vector<JsonMember> members;
};

/// Null, boolean, number, string, array or object. A boolean is never a number.
class JsonValue {
 public:
  JsonValue() = default;
  JsonValue(std::nullptr_t) {}
  template <std::same_as<bool> Boolean>
  JsonValue(Boolean value) : held(value) {}
  template <std::integral Integer>
  requires(!std::same_as<Integer, bool>) JsonValue(Integer value)
      : held(JsonNumber(static_cast<std::int64_t>(value))) {}
  JsonValue(JsonNumber value) : held(std::move(value)) {}
  JsonValue(std::string value) : held(std::move(value)) {}
  JsonValue(std::string_view value) : held(std::string(value)) {}
  JsonValue(const char* value) : held(std::string(value)) {}
  JsonValue(JsonArray value) : held(std::move(value)) {}
  JsonValue(JsonObject value) : held(std::move(value)) {}

  [[nodiscard]] bool isNull() const { return std::holds_alternative<std::monostate>(held); }
  [[nodiscard]] std::optional<bool> asBoolean() const {
    const bool* value = std::get_if<bool>(&held);
    return value ? std::optional(*value) : std::nullopt;
  }

  /// The value as the type asked for, or null when it is of another one.
  [[nodiscard]] const JsonNumber* asNumber() const { return std::get_if<JsonNumber>(&held); }
  [[nodiscard]] const std::string* asString() const { return std::get_if<std::string>(&held); }
  [[nodiscard]] const JsonArray* asArray() const { return std::get_if<JsonArray>(&held); }
  [[nodiscard]] const JsonObject* asObject() const { return std::get_if<JsonObject>(&held); }
  [[nodiscard]] JsonObject* asObject() { return std::get_if<JsonObject>(&held); }

 private:
  std::variant<std::monostate, bool, JsonNumber, std::string, JsonArray, JsonObject> held;
};

struct JsonMember {
  std::string key;
  JsonValue value;
};

// Here, where a member is a complete type: a vector of an incomplete one can be named, not used.
inline JsonObject::JsonObject() = default;
inline JsonObject::JsonObject(const JsonObject& other) = default;
inline JsonObject::JsonObject(JsonObject&& other) noexcept = default;
inline JsonObject& JsonObject::operator=(const JsonObject& other) = default;
inline JsonObject& JsonObject::operator=(JsonObject&& other) noexcept = default;
inline JsonObject::~JsonObject() = default;

inline bool JsonObject::empty() const {
  return members.empty();
}

inline std::size_t JsonObject::size() const {
  return members.size();
}

inline JsonObject::Iterator JsonObject::begin() const {
  return members.begin();
}

inline JsonObject::Iterator JsonObject::end() const {
  return members.end();
}

/// Whether every element is a string; true for an empty array.
[[nodiscard]] bool holdsOnlyStrings(const JsonArray& array);

/// An array of the given values, each nested as it is.
template <typename... Values>
[[nodiscard]] JsonArray arrayOf(Values&&... values) {
  JsonArray array;
  array.reserve(sizeof...(values));
  (array.emplace_back(std::forward<Values>(values)), ...);
  return array;
}

}  // namespace quillmere
