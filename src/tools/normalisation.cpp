#include "tools/normalisation.hpp"

#include <algorithm>
#include <string>

#include "json/writer.hpp"
#include "platform/text.hpp"
#include "tools/catalogue.hpp"

namespace quillmere {

namespace {

struct KeyAlias {
  std::string_view alias;
  std::string_view canonicalName;
};

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

std::string loweredName(std::string_view text) {
  return lowerCased(trimmed(text));
}

std::string canonicalKey(std::string_view text) {
  const std::string lowered = loweredName(text);
  std::string candidate = lowered;
  std::ranges::replace(candidate, '-', '_');
  if (std::ranges::find(allowedKeyValues, candidate) != allowedKeyValues.end()) return candidate;
  const auto* alias = std::ranges::find(keyAliases, lowered, &KeyAlias::alias);
  // A name that is neither goes on as it is, for validation to refuse.
  return alias == std::end(keyAliases) ? candidate : std::string(alias->canonicalName);
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

}  // namespace quillmere
