#include "platform/json_parser.hpp"

#include <boost/json/basic_parser_impl.hpp>
#include <cstring>
#include <iterator>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace quillmere {

namespace {

/// Stands for the string that stays where it is until the parser has done with the text. No string
/// of a JSON text can be the same: this is not UTF-8.
constexpr std::string_view placeholder = "\xFF";

/// Turns the parser's events into values. Finished values wait on one stack until the array or
/// object that holds them ends and takes them in one piece, at its exact size.
class ValueBuilder {
 public:
  static constexpr std::size_t max_object_size = static_cast<std::size_t>(-1);
  static constexpr std::size_t max_array_size = static_cast<std::size_t>(-1);
  static constexpr std::size_t max_key_size = static_cast<std::size_t>(-1);
  static constexpr std::size_t max_string_size = static_cast<std::size_t>(-1);

  /// Lets what the parser has done with of `text` be written over. The string that makes up most of
  /// the text then stays at its start. There can be one at most.
  void useMemoryOf(std::string& text) { memory = text; }
  /// The length of the string that stayed.
  std::optional<std::size_t> left;

  using Error = boost::json::error_code;
  using View = boost::json::string_view;

  bool on_document_begin(Error&) { return true; }
  bool on_document_end(Error&) { return true; }
  bool on_object_begin(Error&) { return true; }
  bool on_array_begin(Error&) { return true; }

  bool on_object_end(std::size_t count, Error&) {
    std::vector<JsonMember> members;
    members.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
      members.push_back(
          {std::move(keys[keys.size() - count + i]), std::move(values[values.size() - count + i])});
    }
    keys.resize(keys.size() - count);
    values.resize(values.size() - count);
    values.emplace_back(JsonObject::fromMembers(std::move(members)));
    return true;
  }

  bool on_array_end(std::size_t count, Error&) {
    const auto first = values.end() - static_cast<std::ptrdiff_t>(count);
    JsonArray array(std::make_move_iterator(first), std::make_move_iterator(values.end()));
    values.erase(first, values.end());
    values.emplace_back(std::move(array));
    return true;
  }

  bool on_key_part(View part, std::size_t, Error&) { return hold(part); }
  bool on_key(View rest, std::size_t, Error&) {
    keys.push_back(take(rest));
    return true;
  }
  bool on_string_part(View part, std::size_t, Error&) { return hold(part); }
  bool on_string(View rest, std::size_t, Error&) {
    if (memory.empty() || heldInMemory + rest.size() < memory.size() / 2) {
      values.emplace_back(take(rest));
    } else {
      hold(rest);
      left = std::exchange(heldInMemory, 0);
      values.emplace_back(placeholder);
    }
    return true;
  }

  bool on_number_part(View part, Error&) { return hold(part); }
  bool on_int64(std::int64_t, View rest, Error&) { return number(rest); }
  bool on_uint64(std::uint64_t, View rest, Error&) { return number(rest); }
  bool on_double(double, View rest, Error&) { return number(rest); }

  bool on_bool(bool value, Error&) {
    values.emplace_back(value);
    return true;
  }
  bool on_null(Error&) {
    values.emplace_back();
    return true;
  }
  bool on_comment_part(View, Error&) { return true; }
  bool on_comment(View, Error&) { return true; }

  [[nodiscard]] JsonValue takeDocument() { return std::move(values.back()); }

 private:
  bool hold(View part) {
    if (memory.empty()) {
      held.append(part.data(), part.size());
    } else {
      // No string is longer than the text it is read from, so this stays behind the parser.
      std::memmove(freeMemory() + heldInMemory, part.data(), part.size());
      heldInMemory += part.size();
    }
    return true;
  }
  std::string take(View rest) {
    if (held.empty() && heldInMemory == 0) return {rest.data(), rest.size()};
    hold(rest);
    if (memory.empty()) return std::exchange(held, {});
    return {freeMemory(), std::exchange(heldInMemory, 0)};
  }
  [[nodiscard]] char* freeMemory() const { return memory.data() + left.value_or(0); }
  bool number(View rest) {
    values.emplace_back(JsonNumber::fromText(take(rest)));
    return true;
  }

  std::vector<JsonValue> values;
  std::vector<std::string> keys;
  /// The parts of an unfinished string, number or key, in one of these two.
  std::string held;
  std::span<char> memory;
  std::size_t heldInMemory = 0;
};

using Parser = boost::json::basic_parser<ValueBuilder>;

boost::json::parse_options limits() {
  boost::json::parse_options options;
  options.max_depth = maxJsonDepth;
  return options;
}

JsonValue parse(std::string_view text, Parser& parser) {
  boost::json::error_code error;
  const std::size_t used = parser.write_some(false, text.data(), text.size(), error);
  if (!error && used < text.size()) error = boost::json::error::extra_data;
  if (error) throw JsonError("The text is not valid JSON: " + error.message() + ".");

  JsonValue document = parser.handler().takeDocument();
  if (!document.asObject() && !document.asArray()) {
    throw JsonError("The text is not valid JSON: neither an object nor an array at top level.");
  }
  return document;
}

const std::string* findPlaceholder(const JsonValue& value) {
  const std::string* found = value.asString();
  if (found != nullptr) return *found == placeholder ? found : nullptr;
  if (const JsonArray* array = value.asArray()) {
    for (auto element = array->begin(); element != array->end() && found == nullptr; ++element) {
      found = findPlaceholder(*element);
    }
  }
  if (const JsonObject* object = value.asObject()) {
    for (auto member = object->begin(); member != object->end() && found == nullptr; ++member) {
      found = findPlaceholder(member->value);
    }
  }
  return found;
}

}  // namespace

JsonValue parseJson(std::string_view text) {
  Parser parser(limits());
  return parse(text, parser);
}

JsonValue parseJsonInPlace(std::string text) {
  Parser parser(limits());
  parser.handler().useMemoryOf(text);
  JsonValue document = parse(text, parser);

  const auto left = parser.handler().left;
  // Not there when its key came again and another value took its place.
  if (const std::string* found = left ? findPlaceholder(document) : nullptr) {
    text.resize(*left);
    const_cast<std::string&>(*found) = std::move(text);
  }
  return document;
}

}  // namespace quillmere
