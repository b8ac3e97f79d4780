// Texts of ours name tools as the catalogue does. The words of a text are looked up one by one, so
// that no text has to be written twice.
#include "compat/names.hpp"

#include <algorithm>

namespace quillmere {

namespace {

constexpr std::string_view namePrefix = "quillmere.";

std::string withoutDots(std::string_view name) {
  std::string spelled(name);
  std::ranges::replace(spelled, '.', '_');
  return spelled;
}

bool isPartOfName(char c) {
  return (c >= 'a' && c <= 'z') || c == '_' || c == '.';
}

/// The tool that the word is the name of, with or without what all names begin with. Words that
/// have other meanings too, such as "wait", are not names by themselves.
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

}  // namespace

std::string compatSpelled(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const auto end = std::ranges::find_if_not(text, isPartOfName);
    std::string_view word = text.substr(0, static_cast<std::size_t>(end - text.begin()));
    // A sentence may end with a name.
    while (word.ends_with('.')) word.remove_suffix(1);
    if (word.empty()) word = text.substr(0, 1);
    const Tool* tool = toolCalled(word);
    result += tool != nullptr ? withoutDots(tool->name) : std::string(word);
    text.remove_prefix(word.size());
  }
  return result;
}

const Tool* findCompatTool(std::string_view name) {
  const auto tools = allTools();
  const auto tool = std::ranges::find_if(
      tools, [&](const Tool& each) { return each.name == name || withoutDots(each.name) == name; });
  return tool == tools.end() ? nullptr : &*tool;
}

}  // namespace quillmere
