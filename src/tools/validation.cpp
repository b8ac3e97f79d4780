#include "tools/validation.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <optional>
#include <string>

#include "platform/text.hpp"
#include "shared/mcp_error.hpp"

namespace quillmere {

namespace {

void refuseUnknownArguments(const Tool& tool, const JsonObject& arguments) {
  std::optional<std::string> firstUnknown;
  for (const JsonMember& argument : arguments) {
    const JsonString key = argument.key();
    if (findProperty(tool, key.view()) != nullptr) continue;
    if (!firstUnknown || key.view() < *firstUnknown) firstUnknown = key.view();
  }
  if (firstUnknown) throw errors::unsupportedArgument(tool.name, *firstUnknown);
}

void demandRequiredArguments(const Tool& tool, const JsonObject& arguments) {
  for (const std::string_view key : tool.required) {
    if (key.empty()) break;
    const auto value = arguments.find(key);
    if (!value || value->isNull()) throw errors::missingArgument(tool.name, key);
  }
}

void validateString(const JsonValue& value, const Property& property) {
  const auto string = value.asString();
  if (!string) throw errors::notAString(property.name);
  const std::string_view text = string->view();
  if (property.minLength && hasFewerCharactersThan(text, *property.minLength)) {
    throw errors::tooShort(property.name);
  }
  if (property.maxLength && hasMoreCharactersThan(text, *property.maxLength)) {
    throw errors::tooLong(property.name);
  }
  if (!property.allowed.empty() &&
      std::ranges::find(property.allowed, text) == property.allowed.end()) {
    throw errors::notOneOf(property.name, joined(property.allowed, ", "));
  }
}

void validateNumericRange(double value, const Property& property) {
  if (!std::isfinite(value)) throw errors::notFinite(property.name);
  if (property.minimum && value < static_cast<double>(*property.minimum)) {
    throw errors::belowMinimum(property.name);
  }
  if (property.maximum && value > static_cast<double>(*property.maximum)) {
    throw errors::aboveMaximum(property.name);
  }
}

bool isWhole(double value) {
  // From here on 64-bit floats have no fraction, infinity included.
  constexpr double allWhole = 9'007'199'254'740'992;
  if (std::abs(value) >= allWhole) return true;
  return static_cast<double>(static_cast<std::int64_t>(value)) == value;
}

void validateInteger(const JsonValue& value, const Property& property) {
  const auto number = value.asNumber();
  if (!number || !isWhole(number->value())) {
    throw errors::notAnInteger(property.name);
  }
  validateNumericRange(number->value(), property);
}

void validateNumber(const JsonValue& value, const Property& property) {
  const auto number = value.asNumber();
  if (!number) throw errors::notANumber(property.name);
  validateNumericRange(number->value(), property);
}

void validateValue(const JsonValue& value, const Property& property) {
  switch (property.type) {
    case ArgumentType::string:
      return validateString(value, property);
    case ArgumentType::boolean:
      if (!value.asBoolean()) throw errors::notABoolean(property.name);
      return;
    case ArgumentType::integer:
      return validateInteger(value, property);
    case ArgumentType::number:
      return validateNumber(value, property);
  }
}

}  // namespace

void validateSchemaArguments(const Tool& tool, const JsonObject& arguments) {
  refuseUnknownArguments(tool, arguments);
  demandRequiredArguments(tool, arguments);
  for (const JsonMember& argument : arguments.distinctMembers()) {
    const JsonValue value = argument.value();
    if (!value.isNull()) validateValue(value, *findProperty(tool, argument.key().view()));
  }
  if (tool.needsSessionTarget() && !arguments.contains("deviceSerial") &&
      !arguments.contains("sessionId")) {
    throw errors::missingSessionTarget(tool.name);
  }
}

}  // namespace quillmere
