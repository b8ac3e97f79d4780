#include "compat/result.hpp"

#include <string>
#include <utility>
#include <vector>

#include "compat/pictures.hpp"
#include "json/document.hpp"
#include "results/tool_result.hpp"

namespace quillmere {

JsonText compatResult(const GuidedResponse& guided) {
  JsonText content = JsonText::array();
  content.add(
      JsonText{{"type", "text"},
               {"text", summaryLines(guided) +
                            "\nThe full result is the next item of this content, as JSON text."}});

  // What was added to the response has a place in a document only after it was written and read.
  const auto written = guided.isChanged() ? parseJson(structuredContent(guided).str()) : nullptr;
  const JsonValue value = written == nullptr ? guided.appResponse.asValue() : written->root();

  // Items count from 1: the summary and this text are the first two.
  constexpr std::size_t firstPictureItem = 3;
  const std::vector<Picture> pictures = picturesIn(value);
  std::vector<JsonText::Replacement> notes;
  for (const Picture& picture : pictures) {
    const std::size_t item = firstPictureItem + notes.size();
    notes.push_back({picture.base64, "picture: item " + std::to_string(item) + " of this content"});
  }
  content.add(JsonText{{"type", "text"}, {"text", JsonText::quoted(value, notes)}});
  for (const auto& [base64, mimeType] : pictures) {
    content.add(JsonText{{"type", "image"}, {"data", base64}, {"mimeType", mimeType}});
  }
  return JsonText{{"content", std::move(content)}, {"isError", isFailure(guided)}};
}

}  // namespace quillmere
