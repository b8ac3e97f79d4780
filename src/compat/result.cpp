#include "compat/result.hpp"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "compat/names.hpp"
#include "compat/picture_items.hpp"
#include "compat/tables.hpp"
#include "json/document.hpp"
#include "results/tool_result.hpp"

namespace quillmere {

namespace {

/// What the app says of tools, where that changes with the names that the client knows. What we
/// added to the response has them already, and may quote what the phone says.
std::vector<JsonText::Replacement> respelledStrings(const GuidedResponse& guided,
                                                    const JsonObject& response) {
  std::vector<JsonText::Replacement> respelled;
  const auto add = [&](const std::optional<JsonValue>& value) {
    const auto string = value ? value->asString() : std::nullopt;
    if (!string) return;
    std::string by = compatSpelled(string->view());
    if (by != string->view()) respelled.push_back({*value, std::move(by)});
  };
  if (const auto error = response.findObject("error")) add(error->find("message"));
  if (const auto next = response.findObject("nextRecommendedTool")) add(next->find("name"));
  if (const auto own = guided.ownWarnings()) {
    auto warning = response.findArray("warnings")->begin();
    for (std::size_t i = 0; i < own->size(); ++i, ++warning) add(*warning);
  }
  return respelled;
}

/// The text item: `value` with `respelled`, and a note in each picture's place.
JsonText textWith(std::string_view summary, const JsonValue& value,
                  std::vector<JsonText::Replacement> respelled,
                  const std::vector<PictureItem>& pictures) {
  for (const PictureItem& picture : pictures) respelled.push_back(picture.note());
  std::ranges::sort(respelled, {}, [](const auto& each) { return each.value.place(); });
  return textForModel(summary, value, respelled);
}

}  // namespace

JsonText compatResult(const GuidedResponse& guided) {
  // What was added to the response has a place in a document only after it was written and read.
  const auto written = guided.isChanged() ? parseJson(structuredContent(guided).str()) : nullptr;
  const JsonValue value = written == nullptr ? guided.appResponse.asValue() : written->root();

  const std::string summary = summaryLines(guided, compatSpelled);
  const auto respelled = respelledStrings(guided, value.asObject().value());
  // Items count from 1: the text is the first one.
  constexpr std::size_t firstPictureItem = 2;
  std::vector<PictureItem> pictures = pictureItems(value, firstPictureItem);
  JsonText text = textWith(summary, value, respelled, pictures);
  if (fitPictures(pictures, text.size())) text = textWith(summary, value, respelled, pictures);
  JsonText content = JsonText::array();
  content.add(JsonText{{"type", "text"}, {"text", std::move(text)}});
  for (const PictureItem& picture : pictures) content.add(picture.json());
  return JsonText{{"content", std::move(content)}, {"isError", isFailure(guided)}};
}

}  // namespace quillmere
