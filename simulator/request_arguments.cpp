#include "simulator/request_arguments.hpp"

#include "simulator/refusal.hpp"

namespace quillmere::simulator {

std::string textArgument(const JsonObject& request, std::string_view key) {
  const auto text = request.findString(key);
  if (!text) throw refusals::invalidArgument(key, "a string");
  return std::string(text->view());
}

std::string optionalText(const JsonObject& request, std::string_view key) {
  return request.contains(key) ? textArgument(request, key) : std::string();
}

bool flag(const JsonObject& request, std::string_view key, bool otherwise) {
  if (!request.contains(key)) return otherwise;
  const auto value = request.findBoolean(key);
  if (!value) throw refusals::invalidArgument(key, "true or false");
  return *value;
}

double coordinate(const JsonObject& request, std::string_view key, int end) {
  const auto number = request.findNumber(key);
  const double value = number ? number->value() : -1;
  if (!(value >= 0 && value < end)) {
    throw refusals::invalidArgument(key, "a number from 0 to below " + std::to_string(end));
  }
  return value;
}

std::int64_t wholeNumber(const JsonObject& request, std::string_view key, std::int64_t least,
                         std::int64_t most, std::optional<std::int64_t> otherwise) {
  if (otherwise && !request.contains(key)) return *otherwise;
  const auto number = request.findNumber(key);
  const auto value = number ? number->integer() : std::nullopt;
  if (!value || *value < least || *value > most) {
    throw refusals::invalidArgument(
        key, "a whole number from " + std::to_string(least) + " to " + std::to_string(most));
  }
  return *value;
}

}  // namespace quillmere::simulator
