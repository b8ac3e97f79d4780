// The rules of the simulated world: a request and a time in, a changed world and a response out.
// Pure: nothing here reads, draws, waits or sends.
#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "json/value.hpp"
#include "json/writer.hpp"
#include "simulator/phone.hpp"

namespace quillmere::simulator {

/// A phone and what the desktop app knows about it.
struct MirroredDevice {
  const Device* device = nullptr;
  Phone phone = {};
  /// Empty while the phone is not mirrored.
  std::string sessionId = {};
  /// Packages that the user has acknowledged.
  std::set<std::string_view> acknowledgedPackages = {};
  /// The latest views whose signature was in a response, each once.
  std::deque<View> shownViews = {};
};

struct World {
  std::vector<MirroredDevice> devices;
  bool isControlStopped = false;
  std::int64_t startedSessions = 0;
  std::int64_t givenAnswers = 0;
};

/// Its phones have screens of `scale` times `mirror`.
[[nodiscard]] World makeWorld(int scale = 1);

/// A request on its way through the rules. Keep it and the request's document from turn to turn.
struct Call {
  JsonObject request;
  std::optional<WorldTime> startedAt = {};
  /// What a wait for a stable screen saw last, and since when.
  std::string lastSignature = {};
  WorldTime unchangedSince{0};
};

/// Either the response, or how long to wait before the next turn.
struct Turn {
  std::optional<JsonText> answer = {};
  /// The view whose picture the response must hold under `image`.
  std::optional<View> picture = {};
  WorldTime askAgainIn{0};
};

/// Takes the next turn of a call. Every request gets a response in the end; one that makes no sense
/// gets `ok` false and an `error`.
[[nodiscard]] Turn takeTurn(World& world, Call& call, WorldTime now);

/// The response to a request that must fail on demand.
[[nodiscard]] JsonText failedAnswer(World& world, const JsonObject& request);

/// Whether there is a command of this name.
[[nodiscard]] bool isCommand(std::string_view name);

}  // namespace quillmere::simulator
