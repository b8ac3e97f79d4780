#include "simulator/view_json.hpp"

#include <algorithm>
#include <array>
#include <utility>

namespace quillmere::simulator {

namespace {

constexpr std::string_view roleNames[] = {"label",    "button",  "toggle",  "textField", "list",
                                          "listItem", "webView", "webText", "keyboard"};
static_assert(std::size(roleNames) == static_cast<std::size_t>(Role::keyboard) + 1);

JsonText boundsJson(const Bounds& bounds, int scale) {
  return {{"x", bounds.x * scale},
          {"y", bounds.y * scale},
          {"width", bounds.width * scale},
          {"height", bounds.height * scale}};
}

JsonText nodeJson(const VisibleNode& node, int scale) {
  JsonText json{{"nodeId", node.id},
                {"role", roleNames[static_cast<std::size_t>(node.role)]},
                {"resourceId", node.resourceId()},
                {"text", node.text},
                {"bounds", boundsJson(node.bounds, scale)}};
  if (!node.hint.empty()) json.set("hint", node.hint);
  if (node.isClickable) json.set("clickable", true);
  if (node.isEditable()) json.set("editable", true);
  if (node.isFocused) json.set("focused", true);
  if (node.isChecked) json.set("checked", *node.isChecked);
  if (node.isScrollable()) {
    json.set("scrollable", true);
    json.set("canScrollUp", node.canScrollUp);
    json.set("canScrollDown", node.canScrollDown);
  }
  return json;
}

const VisibleNode* findNode(const View& view, const std::string& resourceId) {
  const auto node = std::ranges::find(view.nodes, resourceId, &VisibleNode::resourceId);
  return node == view.nodes.end() ? nullptr : &*node;
}

bool looksAlike(const VisibleNode& one, const VisibleNode& other) {
  return one.text == other.text && one.isFocused == other.isFocused &&
         one.isChecked == other.isChecked && one.canScrollUp == other.canScrollUp &&
         one.canScrollDown == other.canScrollDown;
}

}  // namespace

JsonText uiStateOf(const View& view, bool includeNonInteractive, std::size_t maximumNodes) {
  JsonText nodes = JsonText::array();
  std::size_t count = 0;
  for (const VisibleNode& node : view.nodes) {
    if (node.role == Role::webText && !includeNonInteractive) continue;
    if (count++ < maximumNodes) nodes.add(nodeJson(node, view.scale));
  }
  return {{"packageName", view.packageName},
          {"title", view.title},
          {"stateSignature", view.signature},
          {"imeActive", view.isImeActive},
          {"elementCount", count},
          {"returned", std::min(count, maximumNodes)},
          {"truncated", maximumNodes < count},
          {"nodes", std::move(nodes)}};
}

JsonText visibleStateOf(const View& view) {
  return {{"uiTopPackageName", view.packageName},
          {"title", view.title},
          {"imeActive", view.isImeActive},
          {"stateSignature", view.signature}};
}

JsonText uiDiffOf(const View& before, const View& after) {
  JsonText added = JsonText::array();
  JsonText removed = JsonText::array();
  JsonText changed = JsonText::array();
  for (const VisibleNode& node : after.nodes) {
    const VisibleNode* earlier = findNode(before, node.resourceId());
    if (earlier == nullptr) {
      added.add(nodeJson(node, after.scale));
    } else if (!looksAlike(*earlier, node)) {
      changed.add(nodeJson(node, after.scale));
    }
  }
  for (const VisibleNode& node : before.nodes) {
    if (findNode(after, node.resourceId()) == nullptr) removed.add(node.resourceId());
  }
  return {{"previousStateSignature", before.signature},
          {"packageChanged", before.packageName != after.packageName},
          {"added", std::move(added)},
          {"changed", std::move(changed)},
          {"removed", std::move(removed)}};
}

}  // namespace quillmere::simulator
