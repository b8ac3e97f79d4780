// The simulated world as data: phones, apps, their screens, and what touching a node does. The
// rules that read these tables are in phone.hpp and commands.hpp.
#pragma once

#include <chrono>
#include <span>
#include <string_view>

namespace quillmere::simulator {

/// A rectangle in pixels of `mirror`, the origin at the top left.
struct Bounds {
  int x = 0;
  int y = 0;
  int width = 0;
  int height = 0;
};

/// The screen that all tables are made for. A phone may show it larger, by a whole number.
inline constexpr Bounds mirror = {0, 0, 540, 1200};
/// Height of a line of a list.
inline constexpr int rowHeight = 72;

enum class Role { label, button, toggle, textField, list, listItem, webView, webText, keyboard };

struct Device {
  std::string_view serial;
  std::string_view model;
  std::string_view androidVersion;
  bool isOnline = true;
};

struct App {
  std::string_view packageName;
  std::string_view title;
  std::string_view firstScreen;
  bool isSystem = false;
  /// How long the app keeps loading after a launch.
  std::chrono::milliseconds loadTime{0};
  /// What the user must say before an AI may act in the app; empty for most apps.
  std::string_view acknowledgement = {};
};

/// A part of a screen. Names are unique in the world: the content of fields, the items of lists and
/// the state of toggles are stored under them.
struct Node {
  std::string_view name;
  Role role = Role::label;
  /// Caption, or what an empty text field shows.
  std::string_view text;
  Bounds bounds;
};

struct Screen {
  std::string_view name;
  std::string_view packageName;
  std::string_view title;
  std::span<const Node> nodes;
};

enum class Effect {
  openScreen,    ///< shows the screen named in `target`
  launchApp,     ///< launches the package named in `target`
  launchItem,    ///< launches the app whose title the touched list item shows
  tickItem,      ///< ticks or unticks the touched list item
  appendToList,  ///< moves the text of `field` to the end of the list named in `target`
};

/// What touching a node does. A toggle needs no row: it toggles. Neither does a text field: it
/// takes the focus. The row that names a `field` also acts when enter is pressed in that field.
struct Transition {
  std::string_view node;
  Effect effect = Effect::openScreen;
  std::string_view target = {};
  std::string_view field = {};
};

/// What a list holds when the world begins.
struct ListContent {
  std::string_view list;
  std::span<const std::string_view> items;
};

inline constexpr std::string_view homeScreen = "launcher.home";
inline constexpr std::string_view recentsScreen = "launcher.recents";
/// The list of launched apps, latest first.
inline constexpr std::string_view recentApps = "recents.apps";

/// The tables, in the order in which responses show them. Constant data.
[[nodiscard]] std::span<const Device> allDevices();
[[nodiscard]] std::span<const App> allApps();
[[nodiscard]] std::span<const Screen> allScreens();
[[nodiscard]] std::span<const ListContent> initialLists();
[[nodiscard]] std::span<const std::string_view> initiallyOn();

/// The row with this name, or null.
[[nodiscard]] const App* findApp(std::string_view packageName);
[[nodiscard]] const App* findAppByTitle(std::string_view title);
[[nodiscard]] const Screen* findScreen(std::string_view name);
[[nodiscard]] const Transition* findTransition(std::string_view node);
/// The row that acts when enter is pressed in `field`, or null.
[[nodiscard]] const Transition* findTransitionOfField(std::string_view field);

}  // namespace quillmere::simulator
