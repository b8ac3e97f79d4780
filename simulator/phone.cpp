#include "simulator/phone.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>

#include "platform/text.hpp"

namespace quillmere::simulator {

namespace {

constexpr std::size_t longestRecents = 5;
constexpr Bounds keyboardBounds = {0, 1040, 540, 160};

/// FNV-1a, 64 bits: only to distinguish views, not against an adversary.
class Fingerprint {
 public:
  /// Hashes the length too, so that two adjacent texts never look like one.
  void add(std::string_view text) {
    add(text.size());
    for (const char byte : text) addByte(static_cast<unsigned char>(byte));
  }

  void add(std::uint64_t number) {
    for (unsigned shift = 0; shift < 64; shift += 8) addByte((number >> shift) & 0xFFU);
  }

  [[nodiscard]] std::string text() const {
    char digits[17];
    std::snprintf(digits, sizeof digits, "%016llx", static_cast<unsigned long long>(hash));
    return digits;
  }

 private:
  void addByte(std::uint64_t byte) { hash = (hash ^ byte) * 0x100000001B3U; }

  std::uint64_t hash = 0xCBF29CE484222325U;
};

std::string signatureOf(const View& view) {
  Fingerprint print;
  print.add(view.packageName);
  print.add(view.title);
  for (const VisibleNode& node : view.nodes) {
    print.add(node.resourceId());
    print.add(node.text);
    print.add(static_cast<std::uint64_t>(node.isFocused) |
              static_cast<std::uint64_t>(node.isChecked == true) << 1U |
              static_cast<std::uint64_t>(node.canScrollUp) << 2U |
              static_cast<std::uint64_t>(node.canScrollDown) << 3U);
  }
  return print.text();
}

template <typename Value>
Value valueOr(const std::map<std::string_view, Value>& values, std::string_view key,
              Value otherwise) {
  const auto found = values.find(key);
  return found == values.end() ? otherwise : found->second;
}

const std::vector<ListItem>& itemsOf(const Phone& phone, std::string_view list) {
  static const std::vector<ListItem> none;
  const auto found = phone.lists.find(list);
  return found == phone.lists.end() ? none : found->second;
}

int rowsIn(const Bounds& bounds) {
  return bounds.height / rowHeight;
}

int lastFirstRow(const Phone& phone, const VisibleNode& list) {
  const auto count = static_cast<int>(itemsOf(phone, list.name).size());
  return std::max(0, count - rowsIn(list.bounds));
}

bool contains(const Bounds& bounds, double x, double y) {
  return x >= bounds.x && x < bounds.x + bounds.width && y >= bounds.y &&
         y < bounds.y + bounds.height;
}

std::string quoted(std::string_view text) {
  return "\"" + std::string(text) + "\"";
}

class ViewBuilder {
 public:
  ViewBuilder(const Phone& shown, const Screen& screen) : phone(shown) {
    view.packageName = screen.packageName;
    view.title = screen.title;
    view.scale = shown.scale;
  }

  void add(VisibleNode node) {
    node.id = static_cast<int>(view.nodes.size()) + 1;
    view.nodes.push_back(std::move(node));
  }

  void add(const Node& node) {
    VisibleNode visible{.role = node.role, .name = node.name, .bounds = node.bounds};
    visible.text = node.text;
    visible.isClickable = node.role == Role::button || node.role == Role::toggle;
    if (node.role == Role::toggle) visible.isChecked = phone.togglesOn.contains(node.name);
    if (node.role == Role::textField) {
      visible.text = valueOr(phone.fields, node.name, std::string());
      visible.hint = node.text;
      visible.isClickable = true;
      visible.isFocused = phone.focusedField == node.name;
    }
    if (node.role == Role::list) {
      addList(std::move(visible));
    } else {
      add(std::move(visible));
    }
  }

  View finish() {
    view.isImeActive = !phone.focusedField.empty();
    if (view.isImeActive) {
      add(VisibleNode{.role = Role::keyboard,
                      .name = "ime.keyboard",
                      .text = "Quillmere keyboard",
                      .bounds = keyboardBounds});
    }
    view.signature = signatureOf(view);
    return std::move(view);
  }

 private:
  void addList(VisibleNode list) {
    const auto& items = itemsOf(phone, list.name);
    const Transition* touched = findTransition(list.name);
    const int first = valueOr(phone.firstRows, list.name, 0);
    const int rows = rowsIn(list.bounds);
    list.canScrollUp = first > 0;
    list.canScrollDown = first < lastFirstRow(phone, list);
    const VisibleNode shown = list;
    add(std::move(list));
    for (int row = first; row < std::min(first + rows, static_cast<int>(items.size())); ++row) {
      const ListItem& item = items[static_cast<std::size_t>(row)];
      VisibleNode line{.role = Role::listItem, .name = shown.name, .row = row, .text = item.text};
      line.bounds = {shown.bounds.x, shown.bounds.y + (row - first) * rowHeight, shown.bounds.width,
                     rowHeight};
      line.isClickable = touched != nullptr;
      if (touched != nullptr && touched->effect == Effect::tickItem) line.isChecked = item.isTicked;
      add(std::move(line));
    }
  }

  const Phone& phone;
  View view;
};

/// Changes all the time, so that a loading app never looks like a stable screen.
std::string loadingText(const Phone& phone, WorldTime now) {
  const auto tenths = 10 * (now - phone.launchedAt) / (phone.loadedAt - phone.launchedAt);
  return "Loading " + std::to_string(10 * tenths) + " %";
}

void leaveField(Phone& phone) {
  phone.focusedField = {};
}

Outcome goBack(Phone& phone) {
  if (!phone.focusedField.empty()) {
    leaveField(phone);
    return {"Closed the keyboard."};
  }
  if (phone.screens.size() == 1) {
    return {"Pressed back.", "This is the home screen: there is nothing to go back to."};
  }
  phone.screens.pop_back();
  phone.loadedAt = WorldTime(0);
  return {"Went back to " + std::string(findScreen(phone.screens.back())->title) + "."};
}

Outcome goHome(Phone& phone) {
  leaveField(phone);
  phone.screens = {homeScreen};
  phone.loadedAt = WorldTime(0);
  return {"Went to the home screen."};
}

Outcome showRecents(Phone& phone) {
  leaveField(phone);
  phone.screens = {homeScreen, recentsScreen};
  phone.loadedAt = WorldTime(0);
  return {"Showed the recent apps."};
}

Outcome appendFieldToList(Phone& phone, const Transition& transition) {
  std::string& field = phone.fields[transition.field];
  std::string text(trimmed(field));
  if (text.empty()) return {"Nothing was added.", "The text field is empty."};
  field.clear();
  phone.lists[transition.target].push_back({.text = text});
  return {"Added " + quoted(text) + "."};
}

Outcome perform(Phone& phone, const Transition& transition, std::optional<int> row, WorldTime now) {
  switch (transition.effect) {
    case Effect::openScreen:
      leaveField(phone);
      phone.screens.push_back(transition.target);
      return {"Opened " + std::string(findScreen(transition.target)->title) + "."};
    case Effect::launchApp:
      return launch(phone, *findApp(transition.target), now);
    case Effect::launchItem: {
      const std::string& title =
          phone.lists[transition.node][static_cast<std::size_t>(row.value_or(0))].text;
      return launch(phone, *findAppByTitle(title), now);
    }
    case Effect::tickItem: {
      ListItem& item = phone.lists[transition.node][static_cast<std::size_t>(row.value_or(0))];
      item.isTicked = !item.isTicked;
      return {(item.isTicked ? "Ticked " : "Unticked ") + quoted(item.text) + "."};
    }
    case Effect::appendToList:
      return appendFieldToList(phone, transition);
  }
  return {};
}

Outcome moveList(Phone& phone, const VisibleNode& list, int rows) {
  int& first = phone.firstRows[list.name];
  const int before = first;
  first = std::clamp(first + rows, 0, lastFirstRow(phone, list));
  if (first == before) return {"Scrolled.", "The list did not move: it ends here."};
  const int moved = std::abs(first - before);
  return {std::string("Scrolled ") + (first > before ? "down" : "up") + " by " +
          std::to_string(moved) + (moved == 1 ? " line." : " lines.")};
}

Outcome moveFirstList(Phone& phone, WorldTime now, int linesUpOrDown, bool byPages) {
  const View view = viewOf(phone, now);
  const auto list = std::ranges::find(view.nodes, Role::list, &VisibleNode::role);
  if (list == view.nodes.end()) return {"Pressed the key.", "There is no list on this screen."};
  const int rows = byPages ? rowsIn(list->bounds) - 1 : 1;
  return moveList(phone, *list, rows * linesUpOrDown);
}

Outcome pressEnter(Phone& phone, WorldTime now) {
  const Transition* transition = findTransitionOfField(phone.focusedField);
  if (phone.focusedField.empty() || transition == nullptr) {
    return {"Pressed the key.", "Nothing that has the focus reacts to this key."};
  }
  return perform(phone, *transition, std::nullopt, now);
}

Outcome focusNextField(Phone& phone, WorldTime now) {
  const View view = viewOf(phone, now);
  const auto isField = [](const VisibleNode& node) { return node.isEditable(); };
  const auto focused = std::ranges::find(view.nodes, true, &VisibleNode::isFocused);
  auto next =
      focused == view.nodes.end() ? focused : std::find_if(focused + 1, view.nodes.end(), isField);
  if (next == view.nodes.end()) next = std::ranges::find_if(view.nodes, isField);
  if (next == view.nodes.end()) {
    return {"Pressed tab.", "There is no text field on this screen."};
  }
  return focus(phone, *next);
}

Outcome deleteLast(Phone& phone) {
  if (phone.focusedField.empty() || phone.fields[phone.focusedField].empty()) {
    return {"Pressed delete.", "There is nothing to delete."};
  }
  std::string& text = phone.fields[phone.focusedField];
  const auto isContinuation = [](char byte) {
    return (static_cast<unsigned char>(byte) >> 6U) == 2U;
  };
  while (text.size() > 1 && isContinuation(text.back())) text.pop_back();
  text.pop_back();
  return {"Deleted the last character."};
}

Outcome closeKeyboard(Phone& phone) {
  if (phone.focusedField.empty()) return {"Pressed escape.", "The keyboard is not shown."};
  return goBack(phone);
}

struct KeyRow {
  std::string_view key;
  Outcome (*press)(Phone& phone, WorldTime now);
};

constexpr KeyRow keys[] = {
    {"back", [](Phone& phone, WorldTime) { return goBack(phone); }},
    {"home", [](Phone& phone, WorldTime) { return goHome(phone); }},
    {"recents", [](Phone& phone, WorldTime) { return showRecents(phone); }},
    {"enter", pressEnter},
    {"tab", focusNextField},
    {"delete", [](Phone& phone, WorldTime) { return deleteLast(phone); }},
    {"forward_delete",
     [](Phone&, WorldTime) {
       return Outcome{"Pressed forward delete.", "The cursor is at the end of the text."};
     }},
    {"escape", [](Phone& phone, WorldTime) { return closeKeyboard(phone); }},
    {"dpad_up", [](Phone& phone, WorldTime now) { return moveFirstList(phone, now, -1, false); }},
    {"dpad_down", [](Phone& phone, WorldTime now) { return moveFirstList(phone, now, 1, false); }},
    {"dpad_left",
     [](Phone&, WorldTime) {
       return Outcome{"Pressed left.", "Nothing on this screen moves sideways."};
     }},
    {"dpad_right",
     [](Phone&, WorldTime) {
       return Outcome{"Pressed right.", "Nothing on this screen moves sideways."};
     }},
    {"dpad_center", pressEnter},
    {"page_up", [](Phone& phone, WorldTime now) { return moveFirstList(phone, now, -1, true); }},
    {"page_down", [](Phone& phone, WorldTime now) { return moveFirstList(phone, now, 1, true); }},
};
static_assert(std::size(keys) == 15);

}  // namespace

std::string VisibleNode::resourceId() const {
  return row ? std::string(name) + "[" + std::to_string(*row) + "]" : std::string(name);
}

Phone makePhone(int scale) {
  Phone phone;
  phone.scale = scale;
  for (const auto& [list, items] : initialLists()) {
    auto& content = phone.lists[list];
    for (const std::string_view item : items) content.push_back({.text = std::string(item)});
  }
  phone.togglesOn.insert(initiallyOn().begin(), initiallyOn().end());
  return phone;
}

View viewOf(const Phone& phone, WorldTime now) {
  const Screen& screen = *findScreen(phone.screens.back());
  ViewBuilder builder(phone, screen);
  if (now < phone.loadedAt) {
    builder.add(VisibleNode{
        .name = "app.loading", .text = loadingText(phone, now), .bounds = {40, 540, 460, 60}});
  } else {
    for (const Node& node : screen.nodes) builder.add(node);
  }
  return builder.finish();
}

Outcome touch(Phone& phone, const VisibleNode& node, WorldTime now) {
  if (node.isEditable()) return focus(phone, node);
  if (node.role == Role::toggle) {
    const bool turnsOn = phone.togglesOn.insert(node.name).second;
    if (!turnsOn) phone.togglesOn.erase(node.name);
    return {"Turned " + node.text + (turnsOn ? " on." : " off.")};
  }
  const Transition* transition = findTransition(node.name);
  if (!node.isClickable || transition == nullptr) {
    return {"Touched " + quoted(node.text) + ".", "Nothing there reacts to a touch."};
  }
  return perform(phone, *transition, node.row, now);
}

Outcome touchAt(Phone& phone, double x, double y, WorldTime now) {
  const View view = viewOf(phone, now);
  const auto node = std::find_if(view.nodes.rbegin(), view.nodes.rend(),
                                 [&](const auto& each) { return contains(each.bounds, x, y); });
  if (node == view.nodes.rend()) return {"Tapped.", "There is nothing at this point."};
  return touch(phone, *node, now);
}

Outcome swipe(Phone& phone, double startX, double startY, double endX, double endY, WorldTime now) {
  const View view = viewOf(phone, now);
  const auto list = std::ranges::find_if(view.nodes, [&](const VisibleNode& node) {
    return node.isScrollable() && contains(node.bounds, startX, startY);
  });
  if (list == view.nodes.end() || std::abs(endX - startX) > std::abs(endY - startY)) {
    return {"Swiped.", "Nothing there moves in this direction."};
  }
  return moveList(phone, *list, static_cast<int>(std::lround((startY - endY) / rowHeight)));
}

Outcome scroll(Phone& phone, const VisibleNode& list, Direction direction) {
  if (direction == Direction::left || direction == Direction::right) {
    return {"Scrolled.", "The list does not move sideways."};
  }
  const int page = rowsIn(list.bounds) - 1;
  return moveList(phone, list, direction == Direction::down ? page : -page);
}

Outcome focus(Phone& phone, const VisibleNode& field) {
  phone.focusedField = field.name;
  return {"Focused " + quoted(field.hint) + "; the Quillmere IME is active."};
}

Outcome typeText(Phone& phone, std::string_view text) {
  phone.fields[phone.focusedField] += text;
  return {"Typed " + quoted(text) + "."};
}

Outcome replaceText(Phone& phone, std::string_view text) {
  phone.fields[phone.focusedField] = text;
  return {"Set the text to " + quoted(text) + "."};
}

std::optional<Outcome> pressKey(Phone& phone, std::string_view key, WorldTime now) {
  const auto* row = std::ranges::find(keys, key, &KeyRow::key);
  return row == std::end(keys) ? std::nullopt : std::optional(row->press(phone, now));
}

Outcome launch(Phone& phone, const App& app, WorldTime now) {
  leaveField(phone);
  phone.screens = {homeScreen, app.firstScreen};
  phone.launchedAt = now;
  phone.loadedAt = now + app.loadTime;
  auto& recents = phone.lists[recentApps];
  std::erase_if(recents, [&](const ListItem& item) { return item.text == app.title; });
  recents.insert(recents.begin(), {.text = std::string(app.title)});
  if (recents.size() > longestRecents) recents.pop_back();
  return {"Launched " + std::string(app.title) + "."};
}

}  // namespace quillmere::simulator
