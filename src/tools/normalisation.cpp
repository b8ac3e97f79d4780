#include "tools/normalisation.hpp"

#include <algorithm>
#include <string>
#include <utility>

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

JsonObject normalizeToolArguments(std::string_view name, JsonObject arguments) {
  for (const Rewrite& rewrite : rewrites) {
    if (rewrite.tool != name) continue;
    if (const std::string* text = arguments.findString(rewrite.argument)) {
      arguments.set(rewrite.argument, rewrite.canonical(*text));
    }
  }
  return arguments;
}

}  // namespace quillmere
