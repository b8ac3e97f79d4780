// The text for a model holds the whole app response: a reader rebuilds it byte for byte. It is
// never longer than the app response.
#include "compat/table.hpp"
#include "compat/tables.hpp"
#include "fuzz_support.hpp"
#include "json/document.hpp"
#include "support/table_reader.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace quillmere;
  std::shared_ptr<const JsonDocument> document;
  try {
    document = parseJson(textOf(data, size));
  } catch (const JsonError&) {
    return 0;
  }
  const JsonValue root = document->root();
  // A summary may say anything.
  constexpr std::string_view summary = "@1: a\n@";
  const auto read = parseJson("[" + textForModel(summary, root).str() + "]");
  const JsonArray items = *read->root().asArray();
  const JsonString text = *(*items.begin()).asString();
  demand(appResponseIn(text.view()) == root.text());
  demand(text.view().size() <= summary.size() + 1 + root.text().size());

  // A table that is too short to be worth it is read in the same way.
  constexpr std::string_view mark = "@@@@";
  std::string table = "\"@@@@1\"";
  if (!root.asArray() || root.text().find(mark) != std::string_view::npos) return 0;
  if (appendTable(table, "@@@@1", root, {}, 2 * size + 1'000)) {
    demand(appResponseIn(table + "\n@@@@") == root.text());
  }
  return 0;
}
