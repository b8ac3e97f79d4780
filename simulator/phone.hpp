// One simulated phone: its state, what of it is to be seen, and what touching, typing and scrolling
// do to it. All pure: state and time in, state and a description out. No input comes from anywhere
// else, so that the same calls at the same times always give the same screens.
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

/// Everything that can change on a phone. Keys are names of the world's tables.
struct Phone {
  /// The way back to the home screen; the last one is shown.
  std::vector<std::string_view> screens = {homeScreen};
  /// The text field that has the focus of the input method; empty for none.
  std::string_view focusedField;
  std::map<std::string_view, std::string> fields;
  std::map<std::string_view, std::vector<ListItem>> lists;
  /// The item of a list that is shown at its top.
  std::map<std::string_view, int> firstRows;
  std::set<std::string_view> togglesOn;
  /// From the one until the other the shown app only shows how far it has loaded.
  WorldTime launchedAt{0};
  WorldTime loadedAt{0};
};

/// A node as it is on the screen at one moment.
struct VisibleNode {
  /// 1 for the first node of the screen, and so on, whatever part of them an answer shows.
  int id = 0;
  Role role = Role::label;
  /// Name in the world's tables; of a list item that of its list.
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
  /// What the node is called in answers, such as `shopping.items[3]`.
  [[nodiscard]] std::string resourceId() const;
};

/// All that is to be seen on a phone at one moment. Answers and pictures are made from it alone.
struct View {
  std::string_view packageName;
  std::string_view title;
  std::vector<VisibleNode> nodes;
  bool isImeActive = false;
  /// The same text for the same view, another one for any other.
  std::string signature;
};

/// What an action did, in words.
struct Outcome {
  std::string message;
  /// Empty when the action had its effect.
  std::string warning = {};
};

enum class Direction { up, down, left, right };

/// A phone as the world begins.
[[nodiscard]] Phone makePhone();

[[nodiscard]] View viewOf(const Phone& phone, WorldTime now);

/// Touches a node of the phone's present view.
Outcome touch(Phone& phone, const VisibleNode& node, WorldTime now);
/// Touches what is at a point of the mirror.
Outcome touchAt(Phone& phone, double x, double y, WorldTime now);
/// Moves the list under the start of the swipe by as many lines as the swipe covers.
Outcome swipe(Phone& phone, double startX, double startY, double endX, double endY, WorldTime now);
/// Moves a list by nearly its height, so that one line stays in sight.
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
