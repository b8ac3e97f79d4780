#include "platform/json_parser.hpp"

#include <boost/json/basic_parser_impl.hpp>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

namespace quillmere {

namespace {

/// Turns the parser's events into values. Finished values wait on one stack until the array or
/// object that holds them ends and takes them in one piece, at its exact size.
class ValueBuilder {
 public:
  static constexpr std::size_t max_object_size = static_cast<std::size_t>(-1);
  static constexpr std::size_t max_array_size = static_cast<std::size_t>(-1);
  static constexpr std::size_t max_key_size = static_cast<std::size_t>(-1);
  static constexpr std::size_t max_string_size = static_cast<std::size_t>(-1);

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
    values.emplace_back(take(rest));
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
    held.append(part.data(), part.size());
    return true;
  }
  std::string take(View rest) {
    if (held.empty()) return {rest.data(), rest.size()};
    held.append(rest.data(), rest.size());
    return std::exchange(held, {});
  }
  bool number(View rest) {
    values.emplace_back(JsonNumber::fromText(take(rest)));
    return true;
  }

  std::vector<JsonValue> values;
  std::vector<std::string> keys;
  std::string held;
};

}  // namespace

JsonValue parseJson(std::string_view text) {
  boost::json::parse_options options;
  options.max_depth = maxJsonDepth;
  boost::json::basic_parser<ValueBuilder> parser(options);

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

}  // namespace quillmere
