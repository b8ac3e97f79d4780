// Texts of ours name tools as the catalogue does. Where a form joins names in another way, the
// words of a text are looked up one by one, so that no text has to be written twice.
#include "tools/form.hpp"

#include <algorithm>

#include "platform/text.hpp"

namespace quillmere {

namespace {

constexpr std::string_view namePrefix = "quillmere.";

/// `name`, a name in the catalogue, with `separator` between its parts.
std::string joinedBy(char separator, std::string_view name) {
  std::string spelled(name);
  std::ranges::replace(spelled, '.', separator);
  return spelled;
}

bool isPartOfName(char c) {
  return (c >= 'a' && c <= 'z') || c == '_' || c == '.';
}

/// The tool that the word is the name of, with or without what all names begin with. Words that
/// have other meanings too, such as "wait", are no names by themselves.
const Tool* toolCalled(std::string_view word) {
  const auto tools = allTools();
  const auto isIt = [&](const Tool& tool) {
    const std::string_view shortName = tool.name.substr(namePrefix.size());
    return word == tool.name ||
           (word == shortName && shortName.find('.') != std::string_view::npos);
  };
  const auto tool = std::ranges::find_if(tools, isIt);
  return tool == tools.end() ? nullptr : &*tool;
}

/// The condition that one of the two is given.
JsonText sessionTargetAnyOf() {
  JsonText anyOf = JsonText::array();
  for (const std::string_view target : {"sessionId", "deviceSerial"}) {
    anyOf.add(JsonText{{"required", JsonText::arrayOf(std::span(&target, 1))}});
  }
  return anyOf;
}

JsonText jsonSchema(const Tool& tool, const Form& form) {
  JsonText schema{{"type", "object"}};
  schema.set("properties", merged(tool));
  schema.set("additionalProperties", false);
  if (!tool.required.empty()) schema.set("required", JsonText::arrayOf(tool.required));
  if (form.hasSchemaConditions && contains(sessionTargetToolNames(), tool.name)) {
    schema.set("anyOf", sessionTargetAnyOf());
  }
  return schema;
}

JsonText annotations(const Tool& tool) {
  const Effect effect = tool.effect;
  const bool isReadOnly = effect == Effect::readsPhone || effect == Effect::readsNothing;
  const bool isDestructive = effect == Effect::mayDestroy || effect == Effect::mayDestroyRepeatable;
  const bool isIdempotent = effect != Effect::mayDestroy && effect != Effect::addsInput;
  return JsonText{{"title", tool.title},
                  {"readOnlyHint", isReadOnly},
                  {"destructiveHint", isDestructive},
                  {"idempotentHint", isIdempotent},
                  {"openWorldHint", effect != Effect::readsNothing}};
}

std::string description(const Tool& tool, const Form& form) {
  std::string text = form.spelled(tool.description);
  if (!form.hasSchemaConditions && contains(sessionTargetToolNames(), tool.name)) {
    text += " Needs sessionId or deviceSerial.";
  }
  return text;
}

}  // namespace

std::string Form::spelled(std::string_view text) const {
  // The catalogue's own form needs no look at the words.
  if (nameSeparator == '.') return std::string(text);
  std::string result;
  while (!text.empty()) {
    const auto end = std::ranges::find_if_not(text, isPartOfName);
    std::string_view word = text.substr(0, static_cast<std::size_t>(end - text.begin()));
    // A sentence may end with a name.
    while (word.ends_with('.')) word.remove_suffix(1);
    if (word.empty()) word = text.substr(0, 1);
    const Tool* tool = toolCalled(word);
    result += tool != nullptr ? joinedBy(nameSeparator, tool->name) : std::string(word);
    text.remove_prefix(word.size());
  }
  return result;
}

const Tool* Form::findTool(std::string_view name) const {
  const auto tools = allTools();
  const auto isIt = [&](const Tool& tool) {
    return tool.name == name || spelled(tool.name) == name;
  };
  const auto tool = std::ranges::find_if(tools, isIt);
  return tool == tools.end() ? nullptr : &*tool;
}

JsonText visibleTools(const Form& form) {
  JsonText entries = JsonText::array();
  for (const Tool& tool : allTools()) {
    if (isHidden(tool)) continue;
    JsonText entry{{"name", form.spelled(tool.name)},
                   {"title", tool.title},
                   {"description", description(tool, form)},
                   {"inputSchema", jsonSchema(tool, form)}};
    if (form.hasAnnotations) entry.set("annotations", annotations(tool));
    entries.add(std::move(entry));
  }
  return entries;
}

}  // namespace quillmere
