// One simulated phone: its state, what its screen shows, and what touching, typing and scrolling do
// to it. All pure: state and time in, state and a description out. There is no other input, so the
// same calls at the same times always give the same screens.
#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/world_data.hpp"

namespace quillmere::simulator {

/// Time since the world began.
using WorldTime = std::chrono::milliseconds;

struct ListItem {
  std::string text;
  bool isTicked = false;
};

/// A phone: how large its screen is, and everything that can change. Keys are names of the world's
/// tables.
struct Phone {
  /// How many of its pixels, in each direction, are one of `mirror`.
  int scale = 1;
  /// The screens from the home screen on; the last one is shown.
  std::vector<std::string_view> screens = {homeScreen};
  /// The text field that has the input focus; empty for none.
  std::string_view focusedField;
  std::map<std::string_view, std::string> fields;
  std::map<std::string_view, std::vector<ListItem>> lists;
  /// The item at the top of each list's visible part.
  std::map<std::string_view, int> firstRows;
  std::set<std::string_view> togglesOn;
  /// From the first until the second time the app only shows how far it has loaded.
  WorldTime launchedAt{0};
  WorldTime loadedAt{0};
};

/// A node as it is on the screen at one moment.
struct VisibleNode {
  /// 1 for the first node of the screen, and so on, even if a response shows only some of them.
  int id = 0;
  Role role = Role::label;
  /// Name in the world's tables; for a list item the name of its list.
  std::string_view name;
  /// Place of a list item in its list, from 0.
  std::optional<int> row = {};
  std::string text = {};
  std::string_view hint = {};
  Bounds bounds = {};
  std::optional<bool> isChecked = {};
  bool isClickable = false;
  bool isFocused = false;
  bool canScrollUp = false;
  bool canScrollDown = false;

  [[nodiscard]] bool isEditable() const { return role == Role::textField; }
  [[nodiscard]] bool isScrollable() const { return canScrollUp || canScrollDown; }
  /// The node's name in responses, such as `shopping.items[3]`.
  [[nodiscard]] std::string resourceId() const;
};

/// Everything a phone shows at one moment. Responses and pictures are made only from it.
struct View {
  std::string_view packageName;
  std::string_view title;
  std::vector<VisibleNode> nodes;
  bool isImeActive = false;
  /// The phone's.
  int scale = 1;
  /// The same text for equal views, a different one otherwise.
  std::string signature;
};

/// What an action did, in words.
struct Outcome {
  std::string message;
  /// Empty if the action had an effect.
  std::string warning = {};
};

enum class Direction { up, down, left, right };

/// A phone in its initial state.
[[nodiscard]] Phone makePhone(int scale = 1);

[[nodiscard]] View viewOf(const Phone& phone, WorldTime now);

/// Touches a node of the phone's current view.
Outcome touch(Phone& phone, const VisibleNode& node, WorldTime now);
/// Touches whatever is at a point of `mirror`.
Outcome touchAt(Phone& phone, double x, double y, WorldTime now);
/// Moves the list under the start of the swipe by as many lines as the swipe covers.
Outcome swipe(Phone& phone, double startX, double startY, double endX, double endY, WorldTime now);
/// Moves a list by nearly its height, so that one line stays visible.
Outcome scroll(Phone& phone, const VisibleNode& list, Direction direction);
/// Gives a text field the focus.
Outcome focus(Phone& phone, const VisibleNode& field);
/// Appends to, or replaces, the content of the text field that has the focus.
Outcome typeText(Phone& phone, std::string_view text);
Outcome replaceText(Phone& phone, std::string_view text);
/// Presses a key; nothing for a key that the phone does not have.
std::optional<Outcome> pressKey(Phone& phone, std::string_view key, WorldTime now);
/// Brings an app's first screen to the front.
Outcome launch(Phone& phone, const App& app, WorldTime now);

}  // namespace quillmere::simulator
