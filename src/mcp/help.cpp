// The help tool needs no desktop app, so that an AI can learn what to do when the app is missing.
// These texts use the catalogue's tool names.
#include "mcp/help.hpp"

#include <algorithm>
#include <span>
#include <utility>

#include "mcp/instructions.hpp"
#include "platform/text.hpp"
#include "tools/catalogue.hpp"

namespace quillmere {

namespace {

constexpr std::string_view quickstart[] = {
    connectionInstructions,
    workflowInstructions,
    "Use taskId and taskName consistently when the user has given a concrete phone task.",
    "If the requested action involves payments, submissions, CAPTCHA, account/security changes, "
    "destructive actions, or sensitive data transmission, stop for explicit user confirmation or "
    "handoff.",
};

constexpr std::string_view workflow[] = {
    "If the user only pasted an Quillmere MCP command, treat it as connection setup and ask what "
    "phone task to perform.",
    "Call quillmere.devices.list to choose a deviceSerial.",
    "Call quillmere.sessions.list for that device.",
    "If there is no Phone Screen session, call quillmere.session.start with deviceSerial.",
    "Then call quillmere.screen.observe or quillmere.ui.get_state before acting, and verify after "
    "each action.",
    "Keep passing the same taskId and taskName for one user-visible phone task.",
};

constexpr std::string_view session[] = {
    "quillmere.session.start requires deviceSerial and starts or focuses a Phone Screen session.",
    "Use it when sessions.list is empty, when only Fusion/multi-window sessions exist, or before "
    "the first observe/input call.",
    "The response includes action.session.sessionId; pass that sessionId to later session-scoped "
    "tools.",
};

constexpr std::string_view ui[] = {
    "ui.get_state and ui.wait_for_stable return a logical compact UI projection by default.",
    "Prefer ui.get_state for routine verification. Reserve ui.wait_for_stable for navigation, "
    "animations, or pages that are visibly still changing; keep explicit timeouts short unless the "
    "user task truly requires a long wait.",
    "Use maximumNodes around 30-100 for normal work to keep output small.",
    "Set includeNonInteractive=true when the compact tree misses visible content, especially "
    "WebView, browser, or webpage content; pair it with a higher maximumNodes.",
    "Use stateSignature plus nodeId from the same UI state when calling node actions.",
};

constexpr std::string_view key[] = {
    "quillmere.input.key accepts case-insensitive names and common aliases.",
    "Examples: enter, ENTER, back, home, recents, escape, dpad_down, page_up.",
};

struct Topic {
  std::string_view name;
  std::span<const std::string_view> guidance;
  /// Listed after the guidance unless empty.
  std::span<const std::string_view> canonicalNames = {};
};

/// The first one is for a call without a topic.
constexpr Topic topics[] = {
    {"quickstart", quickstart},
    {"workflow", workflow},
    {"session", session},
    {"ui", ui},
    {"key", key, Constants::allowedKeyValues},
};
static_assert(std::ranges::equal(topics, Constants::helpTopics, {}, &Topic::name));

}  // namespace

JsonText helpPayload(std::optional<std::string_view> topic) {
  const auto* named = std::ranges::find(topics, topic.value_or(""), &Topic::name);
  const Topic& chosen = named == std::end(topics) ? topics[0] : *named;
  JsonText guidance = JsonText::arrayOf(chosen.guidance);
  if (!chosen.canonicalNames.empty()) {
    guidance.add("Canonical names: " + joined(chosen.canonicalNames, ", ") + ".");
  }
  return JsonText{{"ok", true},
                  {"topic", chosen.name},
                  {"guidance", std::move(guidance)},
                  {"availableTopics", JsonText::arrayOf(Constants::helpTopics)}};
}

}  // namespace quillmere
