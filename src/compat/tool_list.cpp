#include "compat/tool_list.hpp"

#include <memory>
#include <string>
#include <utility>

#include "compat/names.hpp"
#include "platform/text.hpp"
#include "tools/catalogue.hpp"

namespace quillmere {

namespace {

/// Without the condition that a session or a device is given: some model interfaces refuse one at
/// a schema's top. The description says it instead.
JsonText inputSchema(const Tool& tool) {
  JsonText schema{{"type", "object"}};
  schema.set("properties", merged(tool));
  schema.set("additionalProperties", false);
  if (!tool.required.empty()) schema.set("required", JsonText::arrayOf(tool.required));
  return schema;
}

std::string description(const Tool& tool) {
  std::string text = compatSpelled(tool.description);
  if (contains(sessionTargetToolNames(), tool.name)) text += " Needs sessionId or deviceSerial.";
  return text;
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

}  // namespace

JsonText compatTools() {
  // Made once; each response refers to it.
  static const auto& text = *new auto(std::make_shared<const std::string>([] {
    JsonText entries = JsonText::array();
    for (const Tool& tool : allTools()) {
      if (isHidden(tool)) continue;
      entries.add(JsonText{{"name", compatSpelled(tool.name)},
                           {"title", tool.title},
                           {"description", description(tool)},
                           {"inputSchema", inputSchema(tool)},
                           {"annotations", annotations(tool)}});
    }
    return entries.str();
  }()));
  return JsonText::ofJson(text);
}

}  // namespace quillmere
