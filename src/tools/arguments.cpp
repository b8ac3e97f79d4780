// A model writes arguments as it understands the schema, not always to the letter. We first correct
// spellings that can mean only one thing, above all names of keys. Then we check the arguments
// against the schema, and report the first fault in words that the model can act on.
#include "tools/arguments.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <optional>
#include <string>

#include "json/writer.hpp"
#include "platform/text.hpp"
#include "protocol/mcp_error.hpp"

namespace quillmere {

namespace Constants {

struct KeyAlias {
  std::string_view alias;
  std::string_view canonicalName;
};

/// All aliases, although those with a hyphen need no look-up: with an underscore instead they are
/// canonical names already.
constexpr KeyAlias keyAliases[] = {
    {"forwarddelete", "forward_delete"},
    {"forward-delete", "forward_delete"},
    {"del", "delete"},
    {"esc", "escape"},
    {"dpadup", "dpad_up"},
    {"dpad-up", "dpad_up"},
    {"dpaddown", "dpad_down"},
    {"dpad-down", "dpad_down"},
    {"dpadleft", "dpad_left"},
    {"dpad-left", "dpad_left"},
    {"dpadright", "dpad_right"},
    {"dpad-right", "dpad_right"},
    {"dpadcenter", "dpad_center"},
    {"dpad-center", "dpad_center"},
    {"pageup", "page_up"},
    {"page-up", "page_up"},
    {"pagedown", "page_down"},
    {"page-down", "page_down"},
};

}  // namespace Constants

namespace {

std::string loweredName(std::string_view text) {
  return lowerCased(trimmed(text));
}

std::string canonicalKey(std::string_view text) {
  const std::string lowered = loweredName(text);
  // With underscores instead of hyphens most spellings are canonical names. The rest are aliases.
  std::string candidate = lowered;
  std::ranges::replace(candidate, '-', '_');
  if (contains(Constants::allowedKeyValues, candidate)) return candidate;
  const auto* alias =
      std::ranges::find(Constants::keyAliases, lowered, &Constants::KeyAlias::alias);
  // Validation refuses anything else.
  return alias == std::end(Constants::keyAliases) ? candidate : std::string(alias->canonicalName);
}

struct Rewrite {
  std::string_view tool;
  std::string_view argument;
  std::string (*canonical)(std::string_view);
};

constexpr Rewrite rewrites[] = {
    {"quillmere.input.key", "key", canonicalKey},
    {"quillmere.ui.scroll_element", "direction", loweredName},
};

void refuseUnknownArguments(const Tool& tool, std::string_view name, const JsonObject& arguments) {
  // The first by name, not by place: the same arguments get the same message in any order.
  std::optional<std::string> firstUnknown;
  for (const JsonMember& argument : arguments) {
    const JsonString key = argument.key();
    if (findProperty(tool, key.view()) != nullptr) continue;
    if (!firstUnknown || key.view() < *firstUnknown) firstUnknown = key.view();
  }
  if (firstUnknown) throw errors::unsupportedArgument(name, *firstUnknown);
}

void demandRequiredArguments(const Tool& tool, std::string_view name, const JsonObject& arguments) {
  for (const std::string_view key : tool.required) {
    const auto value = arguments.find(key);
    if (!value || value->isNull()) throw errors::missingArgument(name, key);
  }
}

void validateString(const JsonValue& value, const Property& property) {
  const auto string = value.asString();
  if (!string) throw errors::notAString(property.name);
  if (property.minLength && string->hasFewerCharactersThan(*property.minLength)) {
    throw errors::tooShort(property.name);
  }
  if (property.maxLength && string->hasMoreCharactersThan(*property.maxLength)) {
    throw errors::tooLong(property.name);
  }
  if (!property.allowed.empty() && !contains(property.allowed, string->view())) {
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

NormalizedArguments normalizeToolArguments(std::string_view name, const JsonObject& arguments) {
  const auto* rewrite = std::ranges::find(rewrites, name, &Rewrite::tool);
  if (rewrite == std::end(rewrites)) return {arguments, nullptr};
  const auto given = arguments.findString(rewrite->argument);
  if (!given) return {arguments, nullptr};
  const std::string canonical = rewrite->canonical(given->view());
  if (*given == canonical) return {arguments, nullptr};

  JsonText text = JsonText::object();
  for (const JsonMember& member : arguments.distinctMembers()) {
    const JsonString key = member.key();
    text.set(key.view(), key == rewrite->argument ? JsonText(canonical) : member.value());
  }
  const auto rewritten = parseJson(text.str());
  return {rewritten->object(), rewritten};
}

void validateSchemaArguments(const Tool& tool, std::string_view name, const JsonObject& arguments) {
  refuseUnknownArguments(tool, name, arguments);
  demandRequiredArguments(tool, name, arguments);
  for (const JsonMember& argument : arguments.distinctMembers()) {
    const JsonValue value = argument.value();
    // Null passes as if it were absent, and is not sent on. A required argument that is null counts
    // as missing, above.
    if (!value.isNull()) validateValue(value, *findProperty(tool, argument.key().view()));
  }
  // Here a null target counts, as it does in the JSON Schema: `required` asks only for the key.
  if (contains(sessionTargetToolNames(), tool.name) && !arguments.contains("deviceSerial") &&
      !arguments.contains("sessionId")) {
    throw errors::missingSessionTarget(name);
  }
}

}  // namespace quillmere
