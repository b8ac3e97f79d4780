// Models often write numbers and booleans as strings, and many clients pass them on as they are.
#include "compat/arguments.hpp"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "json/writer.hpp"

namespace quillmere {

namespace {

/// Whether `text` and nothing around it is a number that the JSON parser takes.
bool isNumber(const std::string& text) {
  try {
    const auto document = parseJson("[" + text + "]");
    const JsonArray array = *document->root().asArray();
    return array.size() == 1 && (*array.begin()).asNumber() && (*array.begin()).text() == text;
  } catch (const JsonError&) {
    return false;
  }
}

/// The JSON text that `value` stands for if it is a string for something else, or nothing.
std::optional<std::string> valueInString(const JsonValue& value, const Property* property) {
  if (property == nullptr || property->type == ArgumentType::string) return std::nullopt;
  const auto string = value.asString();
  if (!string) return std::nullopt;
  std::string text(string->view());
  const bool fits =
      property->type == ArgumentType::boolean ? text == "true" || text == "false" : isNumber(text);
  return fits ? std::optional(std::move(text)) : std::nullopt;
}

}  // namespace

NormalizedArguments takeCompatArguments(const Tool& tool, const JsonObject& arguments) {
  bool isChanged = false;
  JsonText text = JsonText::object();
  for (const JsonMember& member : arguments.distinctMembers()) {
    const JsonString key = member.key();
    const auto value = valueInString(member.value(), findProperty(tool, key.view()));
    isChanged = isChanged || value;
    text.set(key.view(), value ? JsonText::ofJson(*value) : JsonText(member.value()));
  }
  if (!isChanged) return normalizeToolArguments(tool.name, arguments);

  auto changed = parseJson(text.str());
  NormalizedArguments normalized = normalizeToolArguments(tool.name, changed->object());
  if (!normalized.rewritten) normalized.rewritten = std::move(changed);
  return normalized;
}

}  // namespace quillmere
