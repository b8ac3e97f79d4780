#include "tools/argument_guards.hpp"

#include <algorithm>
#include <iterator>

#include "platform/text.hpp"
#include "shared/mcp_error.hpp"

namespace quillmere {

namespace {

struct StringLimit {
  std::string_view name;
  std::size_t characters;
};

constexpr StringLimit stringLimits[] = {
    {"deviceSerial", 512},
    {"sessionId", 512},
    {"key", 512},
    {"packageName", 512},
    {"expectedPackageName", 512},
    {"stateSignature", 128},
    {"taskId", 512},
    {"direction", 16},
    {"text", 16384},
    {"command", 4096},
    {"adbCommand", 4096},
    {"reason", 2048},
    {"userAcknowledgementText", 512},
    {"taskName", 160},
};
static_assert(std::size(stringLimits) == 14);

constexpr std::string_view controlFields[] = {
    "deviceSerial",
    "sessionId",
    "includeOffline",
    "includeSystem",
    "includeImage",
    "includeNonInteractive",
    "includeFullState",
    "x",
    "y",
    "startX",
    "startY",
    "endX",
    "endY",
    "durationMs",
    "key",
    "text",
    "packageName",
    "userId",
    "adbCommand",
    "timeoutMs",
    "stableMs",
    "pollIntervalMs",
    "maximumNodes",
    "expectedPackageName",
    "nodeId",
    "stateSignature",
    "direction",
    "reason",
    "userAcknowledgementText",
    "taskId",
    "taskName",
};
static_assert(std::size(controlFields) == 31);

}  // namespace

void checkStringLimits(const JsonObject& arguments) {
  for (const auto& [name, characters] : stringLimits) {
    const auto text = arguments.findString(name);
    if (text && hasMoreCharactersThan(text->view(), characters)) throw errors::tooLong(name);
  }
}

bool isControlField(std::string_view name) {
  return std::ranges::find(controlFields, name) != std::end(controlFields);
}

}  // namespace quillmere
