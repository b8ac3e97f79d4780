#include "simulator/view_json.hpp"

#include <algorithm>
#include <array>
#include <utility>

namespace quillmere {

namespace {

constexpr std::string_view roleNames[] = {"label",    "button",  "toggle",  "textField", "list",
                                          "listItem", "webView", "webText", "keyboard"};
static_assert(std::size(roleNames) == static_cast<std::size_t>(Role::keyboard) + 1);

JsonObject boundsJson(const Bounds& bounds) {
  return {{"x", bounds.x}, {"y", bounds.y}, {"width", bounds.width}, {"height", bounds.height}};
}

JsonObject nodeJson(const VisibleNode& node) {
  JsonObject json{{"nodeId", node.id},
                  {"role", roleNames[static_cast<std::size_t>(node.role)]},
                  {"resourceId", node.resourceId()},
                  {"text", node.text},
                  {"bounds", boundsJson(node.bounds)}};
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

JsonObject uiStateOf(const View& view, bool includeNonInteractive, std::size_t maximumNodes) {
  JsonArray nodes;
  std::size_t count = 0;
  for (const VisibleNode& node : view.nodes) {
    if (node.role == Role::webText && !includeNonInteractive) continue;
    ++count;
    if (nodes.size() < maximumNodes) nodes.emplace_back(nodeJson(node));
  }
  JsonObject state{{"packageName", view.packageName},
                   {"title", view.title},
                   {"stateSignature", view.signature},
                   {"imeActive", view.isImeActive},
                   {"elementCount", count},
                   {"returned", nodes.size()},
                   {"truncated", nodes.size() < count}};
  state.set("nodes", std::move(nodes));
  return state;
}

JsonObject visibleStateOf(const View& view) {
  return {{"uiTopPackageName", view.packageName},
          {"title", view.title},
          {"imeActive", view.isImeActive},
          {"stateSignature", view.signature}};
}

JsonObject uiDiffOf(const View& before, const View& after) {
  JsonArray added;
  JsonArray removed;
  JsonArray changed;
  for (const VisibleNode& node : after.nodes) {
    const VisibleNode* earlier = findNode(before, node.resourceId());
    if (earlier == nullptr) {
      added.emplace_back(nodeJson(node));
    } else if (!looksAlike(*earlier, node)) {
      changed.emplace_back(nodeJson(node));
    }
  }
  for (const VisibleNode& node : before.nodes) {
    if (findNode(after, node.resourceId()) == nullptr) removed.emplace_back(node.resourceId());
  }
  JsonObject diff{{"previousStateSignature", before.signature},
                  {"packageChanged", before.packageName != after.packageName}};
  diff.set("added", std::move(added));
  diff.set("changed", std::move(changed));
  diff.set("removed", std::move(removed));
  return diff;
}

}  // namespace quillmere
