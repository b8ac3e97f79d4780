// The vocabulary of the AI client: 20 tools and their arguments, as constant data.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <variant>
#include <vector>

#include "json/writer.hpp"

namespace quillmere {

/// Values that schemas name.
namespace Constants {

inline constexpr std::array<std::string_view, 5> helpTopics = {"quickstart", "workflow", "session",
                                                               "ui", "key"};

/// The canonical key names, in the order in which an error lists them.
inline constexpr std::array<std::string_view, 15> allowedKeyValues = {
    "back",      "home",           "recents",     "enter",   "tab",
    "delete",    "forward_delete", "escape",      "dpad_up", "dpad_down",
    "dpad_left", "dpad_right",     "dpad_center", "page_up", "page_down"};

inline constexpr std::array<std::string_view, 4> uiScrollDirections = {"up", "down", "left",
                                                                       "right"};

}  // namespace Constants

enum class ArgumentType { string, boolean, integer, number };

/// One argument of a tool, as its JSON Schema says. An unset field is absent from the schema.
struct Property {
  std::string_view name;
  ArgumentType type = ArgumentType::string;
  std::string_view description = {};
  /// In user-perceived characters; only for strings.
  std::optional<std::size_t> minLength = std::nullopt;
  std::optional<std::size_t> maxLength = std::nullopt;
  /// Inclusive; only for integers and numbers.
  std::optional<std::int64_t> minimum = std::nullopt;
  std::optional<std::int64_t> maximum = std::nullopt;
  /// Only shown to the client: we do not fill in missing arguments.
  std::variant<std::monostate, bool, std::int64_t, std::string_view> defaultValue = {};
  /// The only values that pass; if empty, all pass. Only for strings.
  std::span<const std::string_view> allowed = {};
  std::span<const std::string_view> examples = {};
};

/// What a call does to the phone, for clients that ask a person before a call. Each tool has the
/// closest one. Repeatable means that repeating the call changes nothing more.
enum class Effect {
  /// Changes nothing.
  readsPhone,
  /// This server carries it out by itself, without a phone.
  readsNothing,
  /// Changes what is shown or started; repeatable.
  changesView,
  /// Changes something each time, but destroys nothing.
  addsInput,
  /// May do whatever the app on the screen does in response: delete, buy or send.
  mayDestroy,
  mayDestroyRepeatable,
};

/// Groups of arguments that many tools share, as bits.
enum Fragment : unsigned {
  noFragment = 0,
  taskContext = 1,
  sessionTarget = 2,
  userAcknowledgement = 4,
};

struct Tool {
  std::string_view name;
  std::string_view title;
  std::string_view description;
  /// The desktop app's command, such as `uiGetState`; empty for a tool of this server itself.
  std::string_view toolToCommand = {};
  Effect effect = Effect::readsPhone;
  unsigned fragments = noFragment;
  std::span<const Property> ownProperties = {};
  /// Arguments that must be given. We report the first one that is missing.
  std::span<const std::string_view> required = {};
};

/// All tools, in their fixed order.
[[nodiscard]] std::span<const Tool> allTools();

/// The tool of exactly this name, or null.
[[nodiscard]] const Tool* findTool(std::string_view name);

/// Whether `tools/list` leaves out this tool. Such a tool works like any other.
[[nodiscard]] bool isHidden(const Tool& tool);

/// The tools whose calls must name a session or a device: all that can take a session.
[[nodiscard]] std::span<const std::string_view> sessionTargetToolNames();

/// The argument of exactly this name, shared or the tool's own, or null.
[[nodiscard]] const Property* findProperty(const Tool& tool, std::string_view name);

/// The shared arguments of the tool's fragments and its own ones, in the order of its schema.
[[nodiscard]] std::vector<Property> propertiesOf(const Tool& tool);

/// The schema of one argument.
[[nodiscard]] JsonText propertySchema(const Property& property);

/// The member `properties` of the tool's schema: all of `propertiesOf`, merged into one object.
[[nodiscard]] JsonText merged(const Tool& tool);

/// The entries of `tools/list`, an array: each tool that is not hidden, with its JSON Schema.
[[nodiscard]] JsonText visibleTools();

}  // namespace quillmere
