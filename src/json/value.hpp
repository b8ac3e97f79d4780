// Views of the values in a JSON document: two words each, copied freely, valid as long as the
// document. All functions are pure.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace quillmere {

class JsonArray;
class JsonDocument;
class JsonObject;

/// The characters of a JSON string: a view of the document, or a copy if there are escapes to
/// decode. One thread at a time.
class JsonString {
 public:
  /// `rawBytes` are the bytes of a document between the quotes of a string.
  JsonString(std::string_view rawBytes, bool containsEscapes)
      : raw(rawBytes), hasEscapes(containsEscapes) {}

  /// Decodes escapes the first time. Valid as long as this and the document. Throws
  /// `std::bad_alloc`.
  [[nodiscard]] std::string_view view() const;
  [[nodiscard]] bool operator==(std::string_view other) const { return view() == other; }

  /// Whether there are more, or fewer, user-perceived characters than `count`. This rarely has to
  /// decode anything. Throws `std::bad_alloc`.
  [[nodiscard]] bool hasMoreCharactersThan(std::size_t count) const;
  [[nodiscard]] bool hasFewerCharactersThan(std::size_t count) const {
    return count > 0 && !hasMoreCharactersThan(count - 1);
  }

 private:
  std::string_view raw;
  bool hasEscapes;
  mutable std::optional<std::string> decoded;
};

/// A number, as its own JSON text (RFC 8259, section 6). The program passes numbers on and reads
/// their value only to check them, so nothing is lost, whatever their size.
class JsonNumber {
 public:
  /// `text` must be a number by that grammar, with an exponent of at most 31 bits.
  explicit JsonNumber(std::string_view text) : digits(text) {}

  [[nodiscard]] std::string_view text() const { return digits; }

  /// The nearest 64-bit float; infinite when the number is beyond its range.
  [[nodiscard]] double value() const;

  /// The number when it is whole and fits 64 bits, however it is spelled (`5`, `5.0`, `50e-1`).
  [[nodiscard]] std::optional<std::int64_t> integer() const;

  /// One text for all spellings of one number: its digits as a whole number without trailing zeros,
  /// and a power of ten (`1`, `1.0` and `10e-1` give `1`; `120` gives `12e1`). Exact at any length.
  [[nodiscard]] std::string canonicalText() const;

 private:
  std::string_view digits;
};

/// Null, boolean, number, string, array or object. A boolean is never a number.
class JsonValue {
 public:
  /// The value at this place in the list of tokens; for the document and its iterators.
  JsonValue(const JsonDocument& holder, std::uint32_t place) : document(&holder), token(place) {}

  [[nodiscard]] bool isNull() const;
  [[nodiscard]] bool isString() const;

  /// The value as the requested type, or nothing if it has another type.
  [[nodiscard]] std::optional<bool> asBoolean() const;
  [[nodiscard]] std::optional<JsonNumber> asNumber() const;
  [[nodiscard]] std::optional<JsonString> asString() const;
  [[nodiscard]] std::optional<JsonArray> asArray() const;
  [[nodiscard]] std::optional<JsonObject> asObject() const;

  /// The bytes of the value, compact: a JSON text of its own.
  [[nodiscard]] std::string_view text() const;

  [[nodiscard]] const JsonDocument& holder() const { return *document; }
  [[nodiscard]] std::uint32_t place() const { return token; }

 protected:
  const JsonDocument* document;
  std::uint32_t token;
};

class JsonMember {
 public:
  explicit JsonMember(JsonValue key) : keyString(key) {}

  [[nodiscard]] JsonValue keyValue() const { return keyString; }
  [[nodiscard]] JsonString key() const { return *keyString.asString(); }
  [[nodiscard]] JsonValue value() const { return {keyString.holder(), keyString.place() + 1}; }
  /// The bytes of the key, the colon and the value.
  [[nodiscard]] std::string_view text() const;

 private:
  JsonValue keyString;
};

/// Goes through the elements of an array or the members of an object, in their order.
template <typename Item>
class JsonIterator {
 public:
  using difference_type = std::ptrdiff_t;
  using value_type = Item;

  JsonIterator() = default;
  JsonIterator(const JsonDocument& holder, std::uint32_t place) : document(&holder), token(place) {}

  Item operator*() const { return Item(JsonValue(*document, token)); }
  JsonIterator& operator++();
  JsonIterator operator++(int) {
    const JsonIterator before = *this;
    ++*this;
    return before;
  }
  bool operator==(const JsonIterator& other) const { return token == other.token; }

 private:
  const JsonDocument* document = nullptr;
  std::uint32_t token = 0;
};

template <>
JsonIterator<JsonValue>& JsonIterator<JsonValue>::operator++();
template <>
JsonIterator<JsonMember>& JsonIterator<JsonMember>::operator++();

/// The elements of an array, in their order.
class JsonArray : private JsonValue {
 public:
  explicit JsonArray(JsonValue array) : JsonValue(array) {}

  [[nodiscard]] std::size_t size() const;
  [[nodiscard]] JsonIterator<JsonValue> begin() const { return {*document, token + 1}; }
  [[nodiscard]] JsonIterator<JsonValue> end() const;

  using JsonValue::text;
};

/// The members of an object. If a key is repeated, a lookup finds its last value.
class JsonObject : private JsonValue {
 public:
  explicit JsonObject(JsonValue object) : JsonValue(object) {}
  /// The object without members. Always valid.
  JsonObject();

  /// The value under `key`, or nothing. Linear in the number of members.
  [[nodiscard]] std::optional<JsonValue> find(std::string_view key) const;
  [[nodiscard]] bool contains(std::string_view key) const { return find(key).has_value(); }

  /// The value under `key`, or nothing if it is missing or has another type.
  [[nodiscard]] std::optional<JsonString> findString(std::string_view key) const {
    return findAs(key, &JsonValue::asString);
  }
  [[nodiscard]] std::optional<JsonArray> findArray(std::string_view key) const {
    return findAs(key, &JsonValue::asArray);
  }
  [[nodiscard]] std::optional<JsonObject> findObject(std::string_view key) const {
    return findAs(key, &JsonValue::asObject);
  }
  [[nodiscard]] std::optional<JsonNumber> findNumber(std::string_view key) const {
    return findAs(key, &JsonValue::asNumber);
  }
  [[nodiscard]] std::optional<bool> findBoolean(std::string_view key) const {
    return findAs(key, &JsonValue::asBoolean);
  }

  [[nodiscard]] bool empty() const { return begin() == end(); }

  /// All members as they came, repeated keys included.
  [[nodiscard]] JsonIterator<JsonMember> begin() const { return {*document, token + 1}; }
  [[nodiscard]] JsonIterator<JsonMember> end() const;

  /// The members that count: for a repeated key its last member, in the place of its first. Nearly
  /// linear in the number of members, whatever their keys.
  [[nodiscard]] std::vector<JsonMember> distinctMembers() const;

  [[nodiscard]] JsonValue asValue() const { return *this; }
  using JsonValue::text;

 private:
  template <typename Type>
  std::optional<Type> findAs(std::string_view key,
                             std::optional<Type> (JsonValue::*as)() const) const {
    const auto value = find(key);
    return value ? (*value.*as)() : std::nullopt;
  }
};

/// Whether every element is a string; true for an empty array.
[[nodiscard]] bool holdsOnlyStrings(const JsonArray& array);

}  // namespace quillmere
