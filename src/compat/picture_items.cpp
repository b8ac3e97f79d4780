#include "compat/picture_items.hpp"

#include <algorithm>
#include <string>

namespace quillmere {

namespace {

/// What the response has around its content, with an id of a usual length.
constexpr std::size_t envelopeBytes = 150;
/// What an item has around its picture, and its note at its longest.
constexpr std::size_t itemBytes = 250;
constexpr std::size_t leastCharacters = 50'000;

std::string sizeOf(const PictureSize& size) {
  return std::to_string(size.width) + " x " + std::to_string(size.height);
}

}  // namespace

JsonText::Replacement PictureItem::note() const {
  std::string text = "picture: item " + std::to_string(number) + " of this content";
  if (fitted && fitted->multiplier != "1") {
    text.append(", ").append(sizeOf(fitted->size)).append(" pixels, made smaller from ");
    text.append(sizeOf(fitted->original)).append(": multiply x and y read off it by ");
    text.append(fitted->multiplier).append(" before you tap or swipe there");
  }
  return {picture.base64, std::move(text)};
}

JsonText PictureItem::json() const {
  if (!fitted) {
    return {{"type", "image"}, {"data", picture.base64}, {"mimeType", picture.mimeType}};
  }
  return {{"type", "image"}, {"data", fitted->base64}, {"mimeType", fitted->mimeType}};
}

std::vector<PictureItem> pictureItems(const JsonValue& value, std::size_t firstNumber) {
  std::vector<PictureItem> items;
  for (const Picture& picture : picturesIn(value)) {
    items.push_back({.picture = picture, .number = firstNumber + items.size()});
  }
  return items;
}

bool fitPictures(std::vector<PictureItem>& items, std::size_t otherBytes) {
  struct Waiting {
    PictureItem* item;
    JsonString base64;
  };
  std::vector<Waiting> waiting;
  waiting.reserve(items.size());
  for (PictureItem& item : items) waiting.push_back({&item, *item.picture.base64.asString()});
  std::ranges::sort(waiting, {}, [](const Waiting& each) { return each.base64.view().size(); });

  const std::size_t taken = envelopeBytes + otherBytes + itemBytes * items.size();
  std::size_t left = longestLine - std::min(taken, longestLine);
  std::size_t count = items.size();
  for (auto& [item, base64] : waiting) {
    const std::size_t most = std::max(left / count--, leastCharacters);
    item->fitted = fitPicture(base64.view(), item->picture.mimeType, most);
    const std::size_t used = item->fitted ? item->fitted->base64.size() : base64.view().size();
    left -= std::min(used, left);
  }
  return std::ranges::any_of(items,
                             [](const PictureItem& item) { return item.fitted.has_value(); });
}

}  // namespace quillmere
