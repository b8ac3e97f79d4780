#include "compat/tables.hpp"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "compat/table.hpp"
#include "json/document.hpp"

namespace quillmere {

namespace {

using Replacements = std::span<const JsonText::Replacement>;

/// A table must save more bytes than the line costs that says how to read it, in tokens too: a
/// table has fewer bytes to a token than JSON.
constexpr std::size_t leastSaving = 200;
/// An app response with strings that would need more has no tables.
constexpr std::size_t longestMark = 8;

std::string howToRead(const std::string& mark, std::size_t count, const TableForms& forms) {
  constexpr std::pair<TableForm, std::string_view> explanations[] = {
      {TableForm::sameInAllRows, " (a=1): 1 in every row."},
      {TableForm::usualValue, R"( a=1: 1 where empty, "-" where missing.)"},
      {TableForm::prefix, " a=b*: b comes before each text."},
  };
  const std::string first = mark + "1";
  std::string line =
      count == 1 ? "Table " + first + " is below."
                 : "Tables " + first + " to " + mark + std::to_string(count) + " are below.";
  for (const auto& [form, explanation] : explanations) {
    if (forms[static_cast<std::size_t>(form)]) line += explanation;
  }
  return line + '\n';
}

/// Whether the last line could be taken for the JSON text that is the last line where there are no
/// tables.
bool endsLikeJson(std::string_view tables) {
  const char first = tables[tables.find_last_of('\n') + 1];
  return first == '{' || first == '[';
}

/// How many `@` a string begins with at most. `json` is the text of an array or object.
std::size_t longestRun(std::string_view json) {
  constexpr std::string_view spellings[] = {"@", "\\u0040"};
  std::size_t longest = 0;
  for (const std::string_view spelling : spellings) {
    for (std::size_t at = json.find(spelling); at != std::string_view::npos;
         at = json.find(spelling, at + 1)) {
      if (json[at - 1] != '"') continue;
      std::size_t run = 0;
      for (std::string_view rest = json.substr(at);; ++run) {
        const auto* next = std::ranges::find_if(
            spellings, [&](std::string_view each) { return rest.starts_with(each); });
        if (next == std::end(spellings)) break;
        rest.remove_prefix(next->size());
      }
      longest = std::max(longest, run);
    }
  }
  return longest;
}

bool mayBeTable(const JsonDocument& document, std::uint32_t place) {
  using Kind = JsonDocument::Kind;
  return document.tokenAt(place).kind() == Kind::array &&
         document.tokenAt(place + 1).kind() == Kind::object &&
         document.textOf(place).size() > leastSaving;
}

/// Those in values before that place.
Replacements before(Replacements replaced, std::uint32_t place) {
  const auto end = std::ranges::lower_bound(
      replaced, place, {}, [](const JsonText::Replacement& each) { return each.value.place(); });
  return replaced.first(static_cast<std::size_t>(end - replaced.begin()));
}

/// How long the array's JSON text is, in bytes.
std::size_t sizeWith(const JsonValue& array, Replacements replaced) {
  constexpr std::size_t quotes = 2;
  std::size_t size = array.text().size();
  for (const auto& [value, by] : replaced) size -= value.text().size() - by.size() - quotes;
  return size;
}

}  // namespace

JsonText textForModel(std::string_view summary, const JsonValue& value, Replacements replaced) {
  const JsonDocument& document = value.holder();
  std::string mark;
  std::string tables;
  std::size_t count = 0;
  TableForms forms;
  std::vector<JsonText::Replacement> all;
  Replacements left = replaced;
  const std::uint32_t end = document.next(value.place());
  for (std::uint32_t place = value.place(); place < end;) {
    if (!mayBeTable(document, place)) {
      ++place;
      continue;
    }
    if (mark.empty()) mark.assign(longestRun(value.text()) + 1, '@');
    if (mark.size() > longestMark) break;
    const JsonValue array(document, place);
    const Replacements outside = before(left, place);
    all.insert(all.end(), outside.begin(), outside.end());
    left = left.subspan(outside.size());
    const Replacements inside = before(left, document.next(place));
    const std::string name = mark + std::to_string(count + 1);
    const std::size_t size = sizeWith(array, inside);
    const std::size_t cost = name.size() + leastSaving;
    const auto used = size > cost ? appendTable(tables, name, array, inside, size - cost)
                                  : std::optional<TableForms>();
    if (used) {
      forms |= *used;
      ++count;
      all.push_back({array, name});
      left = left.subspan(inside.size());
      place = document.next(place);
    } else {
      ++place;
    }
  }
  const std::string head = std::string(summary) + "\n";
  if (count == 0) return JsonText::quoted(value, replaced, head);
  all.insert(all.end(), left.begin(), left.end());
  if (endsLikeJson(tables)) tables.append("\n").append(mark);
  return JsonText::quoted(value, all, head + howToRead(mark, count, forms), tables);
}

}  // namespace quillmere
