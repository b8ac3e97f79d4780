#include "simulator/world_data.hpp"

#include <algorithm>

namespace quillmere::simulator {

namespace {

using std::chrono::milliseconds;

constexpr Device devices[] = {
    {.serial = "QM7F3A2101", .model = "Larch 7", .androidVersion = "15"},
    {.serial = "QM2C9B4402", .model = "Larch 4 Lite", .androidVersion = "13", .isOnline = false},
};

constexpr std::string_view launcher = "com.example.launcher";
constexpr std::string_view shopping = "com.example.shopping";
constexpr std::string_view browser = "com.example.browser";
constexpr std::string_view messages = "com.example.messages";
constexpr std::string_view settings = "com.example.settings";

constexpr App apps[] = {
    {.packageName = shopping,
     .title = "Shopping",
     .firstScreen = "shopping.list",
     .loadTime = milliseconds(120)},
    {.packageName = browser,
     .title = "Browser",
     .firstScreen = "browser.page",
     .loadTime = milliseconds(400)},
    {.packageName = messages,
     .title = "Messages",
     .firstScreen = "messages.chats",
     .acknowledgement = "I confirm that AI may use Messages for me."},
    {.packageName = settings,
     .title = "Settings",
     .firstScreen = "settings.main",
     .isSystem = true},
};

constexpr Node homeNodes[] = {
    {"home.greeting", Role::label, "Good morning", {40, 140, 460, 60}},
    {"home.shopping", Role::button, "Shopping", {40, 260, 220, 120}},
    {"home.browser", Role::button, "Browser", {280, 260, 220, 120}},
    {"home.messages", Role::button, "Messages", {40, 400, 220, 120}},
    {"home.settings", Role::button, "Settings", {280, 400, 220, 120}},
};

constexpr Node recentsNodes[] = {
    {"recents.title", Role::label, "Recent apps", {40, 80, 460, 60}},
    {recentApps, Role::list, "", {20, 160, 500, 432}},
};

constexpr Node shoppingNodes[] = {
    {"shopping.title", Role::label, "Shopping list", {40, 80, 460, 60}},
    {"shopping.newItem", Role::textField, "Add an item", {20, 160, 360, 72}},
    {"shopping.add", Role::button, "Add", {400, 160, 120, 72}},
    {"shopping.items", Role::list, "", {20, 260, 500, 648}},
};

constexpr Node browserNodes[] = {
    {"browser.address", Role::label, "market.example/opening-hours", {20, 80, 360, 60}},
    {"browser.reload", Role::button, "Reload", {400, 80, 120, 60}},
    {"browser.view", Role::webView, "Web page", {20, 160, 500, 860}},
    {"browser.heading", Role::webText, "Market Hall", {40, 190, 460, 60}},
    {"browser.weekdays", Role::webText, "Monday to Friday: 8:00 to 19:00", {40, 270, 460, 40}},
    {"browser.saturday", Role::webText, "Saturday: 8:00 to 14:00", {40, 330, 460, 40}},
    {"browser.sunday", Role::webText, "Sunday: closed", {40, 390, 460, 40}},
};

constexpr Node chatsNodes[] = {
    {"chats.title", Role::label, "Messages", {40, 80, 460, 60}},
    {"messages.chats", Role::list, "", {20, 160, 500, 432}},
};

constexpr Node threadNodes[] = {
    {"thread.title", Role::label, "Robin", {40, 80, 460, 60}},
    {"messages.thread", Role::list, "", {20, 160, 500, 648}},
    {"messages.draft", Role::textField, "Write a message", {20, 840, 360, 72}},
    {"messages.send", Role::button, "Send", {400, 840, 120, 72}},
};

constexpr Node settingsNodes[] = {
    {"settings.title", Role::label, "Settings", {40, 80, 460, 60}},
    {"settings.wifi", Role::toggle, "Wi-Fi", {20, 160, 500, 72}},
    {"settings.bluetooth", Role::toggle, "Bluetooth", {20, 240, 500, 72}},
    {"settings.about", Role::button, "About phone", {20, 340, 500, 72}},
};

constexpr Node aboutNodes[] = {
    {"about.title", Role::label, "About phone", {40, 80, 460, 60}},
    {"about.maker", Role::label, "A phone that only exists in this simulator", {40, 180, 460, 40}},
    {"about.build", Role::label, "Build 1", {40, 240, 460, 40}},
};

constexpr Screen screens[] = {
    {homeScreen, launcher, "Home", homeNodes},
    {recentsScreen, launcher, "Recent apps", recentsNodes},
    {"shopping.list", shopping, "Shopping list", shoppingNodes},
    {"browser.page", browser, "Market Hall", browserNodes},
    {"messages.chats", messages, "Messages", chatsNodes},
    {"messages.robin", messages, "Robin", threadNodes},
    {"settings.main", settings, "Settings", settingsNodes},
    {"settings.about", settings, "About phone", aboutNodes},
};

constexpr Transition transitions[] = {
    {.node = "home.shopping", .effect = Effect::launchApp, .target = shopping},
    {.node = "home.browser", .effect = Effect::launchApp, .target = browser},
    {.node = "home.messages", .effect = Effect::launchApp, .target = messages},
    {.node = "home.settings", .effect = Effect::launchApp, .target = settings},
    {.node = recentApps, .effect = Effect::launchItem},
    {.node = "shopping.add",
     .effect = Effect::appendToList,
     .target = "shopping.items",
     .field = "shopping.newItem"},
    {.node = "shopping.items", .effect = Effect::tickItem},
    {.node = "browser.reload", .effect = Effect::launchApp, .target = browser},
    {.node = "messages.chats", .effect = Effect::openScreen, .target = "messages.robin"},
    {.node = "messages.send",
     .effect = Effect::appendToList,
     .target = "messages.thread",
     .field = "messages.draft"},
    {.node = "settings.about", .effect = Effect::openScreen, .target = "settings.about"},
};

constexpr std::string_view shoppingItems[] = {
    "Apples", "Bread",  "Butter", "Carrots", "Coffee", "Eggs",    "Flour",
    "Garlic", "Lemons", "Onions", "Pasta",   "Rice",   "Spinach", "Tomatoes",
};
constexpr std::string_view chats[] = {"Robin"};
constexpr std::string_view thread[] = {"Are you going to the market?"};

constexpr ListContent lists[] = {
    {recentApps, {}},
    {"shopping.items", shoppingItems},
    {"messages.chats", chats},
    {"messages.thread", thread},
};

constexpr std::string_view togglesOn[] = {"settings.wifi"};

// The tables refer to each other by name; a wrong name does not compile.
constexpr bool isNode(std::string_view name) {
  return std::ranges::any_of(screens, [&](const Screen& screen) {
    return std::ranges::count(screen.nodes, name, &Node::name) == 1;
  });
}

constexpr bool leadsSomewhere(const Transition& transition) {
  switch (transition.effect) {
    case Effect::openScreen:
      return std::ranges::count(screens, transition.target, &Screen::name) == 1;
    case Effect::launchApp:
      return std::ranges::count(apps, transition.target, &App::packageName) == 1;
    case Effect::appendToList:
      return isNode(transition.field) &&
             std::ranges::count(lists, transition.target, &ListContent::list) == 1;
    case Effect::launchItem:
    case Effect::tickItem:
      return std::ranges::count(lists, transition.node, &ListContent::list) == 1;
  }
  return false;
}

constexpr bool isOnMirror(const Screen& screen) {
  return std::ranges::all_of(screen.nodes, [](const Node& node) {
    return node.bounds.x >= 0 && node.bounds.y >= 0 &&
           node.bounds.x + node.bounds.width <= mirror.width &&
           node.bounds.y + node.bounds.height <= mirror.height;
  });
}

static_assert(std::ranges::all_of(apps, [](const App& app) {
  return std::ranges::count(screens, app.firstScreen, &Screen::name) == 1;
}));
static_assert(std::ranges::all_of(transitions, &isNode, &Transition::node));
static_assert(std::ranges::all_of(transitions, &leadsSomewhere));
static_assert(std::ranges::all_of(lists, &isNode, &ListContent::list));
static_assert(std::ranges::all_of(togglesOn, &isNode));
static_assert(std::ranges::all_of(screens, &isOnMirror));

template <typename Row>
const Row* findRow(std::span<const Row> rows, std::string_view Row::*key, std::string_view value) {
  const auto row = std::ranges::find(rows, value, key);
  return row == rows.end() ? nullptr : &*row;
}

}  // namespace

std::span<const Device> allDevices() {
  return devices;
}

std::span<const App> allApps() {
  return apps;
}

std::span<const Screen> allScreens() {
  return screens;
}

std::span<const ListContent> initialLists() {
  return lists;
}

std::span<const std::string_view> initiallyOn() {
  return togglesOn;
}

const App* findApp(std::string_view packageName) {
  return findRow<App>(apps, &App::packageName, packageName);
}

const App* findAppByTitle(std::string_view title) {
  return findRow<App>(apps, &App::title, title);
}

const Screen* findScreen(std::string_view name) {
  return findRow<Screen>(screens, &Screen::name, name);
}

const Transition* findTransition(std::string_view node) {
  return findRow<Transition>(transitions, &Transition::node, node);
}

const Transition* findTransitionOfField(std::string_view field) {
  return findRow<Transition>(transitions, &Transition::field, field);
}

}  // namespace quillmere::simulator
