// The rules of the simulated world: a request and a moment in, a changed world and an answer out.
// Pure: nothing is read, drawn, waited for or sent here.
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

/// A phone with what the desktop app knows about it.
struct MirroredDevice {
  const Device* device = nullptr;
  Phone phone = {};
  /// Empty while the phone is not mirrored.
  std::string sessionId = {};
  /// Packages for which the user's acknowledgement has been given.
  std::set<std::string_view> acknowledgedPackages = {};
  /// The latest views of which an answer had the signature, each once.
  std::deque<View> shownViews = {};
};

struct World {
  std::vector<MirroredDevice> devices;
  bool isControlStopped = false;
  std::int64_t startedSessions = 0;
  std::int64_t givenAnswers = 0;
};

[[nodiscard]] World makeWorld();

/// A request on its way through the rules. Keep it, and the document of the request, from turn to
/// turn.
struct Call {
  JsonObject request;
  std::optional<WorldTime> startedAt = {};
  /// What a wait for a stable screen has seen last, and since when.
  std::string lastSignature = {};
  WorldTime unchangedSince{0};
};

/// Either the answer, or how long to wait before the rules are asked again.
struct Turn {
  std::optional<JsonText> answer = {};
  /// The view whose picture the answer is to hold under `image`.
  std::optional<View> picture = {};
  WorldTime askAgainIn{0};
};

/// Goes on with a call. Whatever the request holds, it is answered in the end: with `ok` false and
/// an `error` when it makes no sense.
[[nodiscard]] Turn takeTurn(World& world, Call& call, WorldTime now);

/// The answer to a request that is to fail for no reason of its own.
[[nodiscard]] JsonText failedAnswer(World& world, const JsonObject& request);

/// Whether there is a command of this name.
[[nodiscard]] bool isCommand(std::string_view name);

}  // namespace quillmere::simulator
