// JSON output: the only way we build messages.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "json/document.hpp"
#include "json/value.hpp"

namespace quillmere {

struct JsonField;

/// One JSON value as text, to be written to a client or to the desktop app. Short parts are copied
/// into it. Long ones stay where they are, in a document or in a text of ours: this text refers to
/// them and shares their ownership. It has no white space, and its members are in the order in
/// which they were added. `/` and characters outside ASCII are never escaped.
///
/// Strings of ours must be UTF-8; every function that takes one throws `JsonError` if it is not.
class JsonText {
 public:
  JsonText(std::nullptr_t = nullptr);
  template <std::same_as<bool> Boolean>
  JsonText(Boolean value) : JsonText(ofJson(value ? "true" : "false")) {}
  template <std::integral Integer>
  requires(!std::same_as<Integer, bool>) JsonText(Integer value) : copied(std::to_string(value)) {}
  JsonText(std::string_view string);
  JsonText(const std::string& string) : JsonText(std::string_view(string)) {}
  JsonText(const char* string) : JsonText(std::string_view(string)) {}
  JsonText(const JsonString& string) : JsonText(string.view()) {}
  /// The bytes of the value, as its document has them.
  JsonText(const JsonValue& value);
  JsonText(const JsonObject& object) : JsonText(object.asValue()) {}
  /// An object. Keys must differ.
  JsonText(std::initializer_list<JsonField> fields);

  /// An object without members, or an array without elements.
  [[nodiscard]] static JsonText object();
  [[nodiscard]] static JsonText array();
  /// An array of `elements`, each of which must convert to a `JsonText`.
  template <typename Elements>
  [[nodiscard]] static JsonText arrayOf(const Elements& elements) {
    JsonText text = array();
    for (const auto& element : elements) text.add(JsonText(element));
    return text;
  }

  /// `json` unchanged, which must be a JSON text: copied, or shared.
  [[nodiscard]] static JsonText ofJson(std::string_view json);
  [[nodiscard]] static JsonText ofJson(const std::shared_ptr<const std::string>& json);

  struct Replacement;
  /// A JSON string that holds `before`, the JSON text of `value`, and `after`. `replaced` names
  /// values inside `value`, in their order there and none inside another; each is written as its
  /// replacement. `after` must be UTF-8, with no control characters but tabs and line feeds.
  [[nodiscard]] static JsonText quoted(const JsonValue& value,
                                       std::span<const Replacement> replaced,
                                       std::string_view before, std::string_view after = {});

  /// Adds a member to an object that was built here and has none under this key.
  void set(std::string_view key, JsonText value);

  /// Adds those members of `object` that count, with their original bytes, except those under the
  /// keys in `except`.
  void setMembersOf(const JsonObject& object, std::span<const std::string_view> except = {});

  /// Adds an element to an array that was built here.
  void add(JsonText element);

  /// In bytes.
  [[nodiscard]] std::size_t size() const;
  /// The text, to be written piece by piece. Views into this and what it refers to.
  [[nodiscard]] std::vector<std::string_view> pieces() const&;
  std::vector<std::string_view> pieces() const&& = delete;
  /// The text as a whole, copied.
  [[nodiscard]] std::string str() const;

 private:
  /// A run of text that stays where it is, and the place in the copied text that it belongs to.
  struct Run {
    std::size_t at;
    std::string_view text;
    /// What the bytes belong to.
    std::shared_ptr<const void> holder;
  };

  /// Removes the closing bracket and adds a comma if the next member or element needs one.
  void open(char bracket);
  void append(std::string_view json, std::shared_ptr<const void> holder);
  void append(JsonText value);
  void appendString(std::string_view string);
  /// Turns the copied text into a run if it is long, so that other texts do not copy it again.
  void shareCopied();

  std::string copied;
  std::vector<Run> runs;
};

struct JsonText::Replacement {
  JsonValue value;
  std::string by;
};

/// A member of an object that is being built.
struct JsonField {
  std::string_view key;
  /// We move it into the text, although elements of an initializer list are constant.
  mutable JsonText value;
};

/// The value as JSON text for a human reader: one member per line, two spaces per level, keys
/// sorted by their bytes and each once.
[[nodiscard]] std::string indentedJson(const JsonValue& value);

}  // namespace quillmere
