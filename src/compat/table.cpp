// A few rows from all over the array say what the columns are and what is worth being said once in
// the heading. If another row turns out to contradict them, the columns are read off all rows.
#include "compat/table.hpp"

#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

#include "compat/rows.hpp"
#include "compat/short_text.hpp"

namespace quillmere {

namespace {

using Form = TableForm;
using Place = Rows::Place;

constexpr std::uint64_t sampledRows = 16;
/// A form must save more than this, which is what its explanation costs.
constexpr std::size_t explanationBytes = 60;

/// What the rows that were read have in a column.
struct Content {
  std::size_t count = 0;
  std::string_view firstValue = {};
  bool isSame = true;
  bool holdsOnlyStrings = true;
  bool holdsReplaced = false;
};

struct Column {
  Rows::Column name;
  Content content;
  Form form = Form::cells;
  /// The value's JSON text, or the text before each cell.
  std::string_view said = {};
  /// About how many bytes shorter the table is for the form.
  std::size_t saving = 0;

  void setForm(Form newForm, std::string_view newSaid, std::size_t saved, std::size_t cost) {
    if (saved <= cost + saving) return;
    form = newForm;
    said = newSaid;
    saving = saved - cost;
  }
};

std::string_view withoutQuotes(std::string_view string) {
  return string.substr(1, string.size() - 2);
}

bool isNumber(std::string_view text) {
  const auto skipDigits = [&text] {
    const std::size_t digits = std::min(text.find_first_not_of("0123456789"), text.size());
    text.remove_prefix(digits);
    return digits > 0;
  };
  if (text.starts_with('-')) text.remove_prefix(1);
  const bool hasLeadingZero = text.starts_with('0');
  const std::size_t size = text.size();
  if (!skipDigits() || (hasLeadingZero && size - text.size() > 1)) return false;
  if (text.starts_with('.')) {
    text.remove_prefix(1);
    if (!skipDigits()) return false;
  }
  if (text.starts_with('e') || text.starts_with('E')) {
    text.remove_prefix(1);
    if (text.starts_with('-') || text.starts_with('+')) text.remove_prefix(1);
    if (!skipDigits()) return false;
  }
  return text.empty();
}

/// Whether a string of these characters, none of which needs an escape, can be a cell without
/// quotes: it could be taken neither for JSON nor for a cell that has a meaning of its own, nor its
/// row for the heading of a table.
bool isPlainCell(std::string_view text) {
  if (text.empty() || text == "-" || text == "true" || text == "false" || text == "null") {
    return false;
  }
  const char first = text.front();
  if (first == '"' || first == '[' || first == '{' || first == '@') return false;
  const bool mayBeNumber = first == '-' || (first >= '0' && first <= '9');
  return !mayBeNumber || !isNumber(text);
}

/// The part of a text that others may begin with too, as names in a hierarchy do.
std::string_view stemOf(std::string_view text) {
  return text.substr(0, text.find_last_of("./:") + 1);
}

/// The most frequent of a few texts, and how often it is there.
std::pair<std::string_view, std::size_t> mostFrequent(const std::vector<std::string_view>& texts) {
  std::pair<std::string_view, std::size_t> best;
  for (auto text = texts.begin(); text != texts.end(); ++text) {
    // There are not enough left to be more.
    if (static_cast<std::size_t>(texts.end() - text) <= best.second) break;
    const auto count = static_cast<std::size_t>(std::count_if(
        text, texts.end(), [&](std::string_view other) { return areSame(other, *text); }));
    if (count > best.second) best = {*text, count};
  }
  return best;
}

void appendValue(std::string& text, std::string_view json) {
  const bool isString = json.front() == '"';
  const bool hasEscapes = isString && json.find('\\') != std::string_view::npos;
  const bool isPlain = isString && !hasEscapes && isPlainCell(withoutQuotes(json));
  text += isPlain ? withoutQuotes(json) : json;
}

void appendSaid(std::string& text, const Column& column) {
  if (column.form == Form::prefix) {
    text.append(column.said).append("*");
  } else if (column.said.ends_with("*\"")) {
    // Without quotes it would be taken for a prefix.
    text += column.said;
  } else {
    appendValue(text, column.said);
  }
}

/// Whether the row is one of about `sampledRows`. By the golden ratio: such rows are all over the
/// array, and at no even distance, since rows may repeat in a pattern.
bool isInSample(std::uint32_t index, std::size_t rows) {
  constexpr std::uint32_t goldenRatio = 2'654'435'769;
  const std::uint32_t scattered = index * goldenRatio;
  return std::uint64_t{scattered} * rows < sampledRows << 32U;
}

class Table {
 public:
  Table(const JsonValue& array, std::span<const JsonText::Replacement> replacedStrings)
      : rows(array), replaced(replacedStrings) {}

  /// Reads the columns off all rows, or off the sampled ones. Returns false if these are too
  /// unlike.
  bool findColumns(bool ofSampleOnly) {
    std::vector<Content> contents;
    std::size_t cells = 0;
    std::size_t found = 0;
    std::uint32_t index = 0;
    for (Place row = rows.begin(); row != rows.end(); row = rows.next(row), ++index) {
      const bool isSampled = isInSample(index, rows.count());
      if (ofSampleOnly && !isSampled) continue;
      if (!rows.read(row)) return false;
      ++rowsRead;
      if (isSampled) sample.push_back(rows.cells());
      contents.resize(rows.columnCount());
      for (std::size_t i = 0; i < contents.size(); ++i) {
        if (rows.cell(i) == Rows::missing) continue;
        ++cells;
        note(contents[i], rows.cell(i), found);
      }
      // Each key is looked for among the columns, so those that are there must be worth it.
      if (2 * cells < rowsRead * contents.size()) return false;
    }
    for (const Rows::Column& each : rows.columnsInOrder()) {
      columns.push_back({.name = each, .content = contents[each.number]});
    }
    // All others are in arrays or objects that would be written as they are.
    return !columns.empty() && found == replaced.size();
  }

  void chooseForms() {
    for (Column& column : columns) {
      if (!column.content.holdsReplaced) chooseForm(column);
    }
    // Each form that is used must be explained to the model.
    for (const Form form : {Form::sameInAllRows, Form::usualValue, Form::prefix}) {
      std::size_t saving = 0;
      for (const Column& column : columns) saving += column.form == form ? column.saving : 0;
      if (saving > explanationBytes) continue;
      for (Column& column : columns) {
        if (column.form == form) column.form = Form::cells;
      }
    }
    // A line without a cell would be read as nothing at all.
    const auto isSame = [](const Column& column) { return column.form == Form::sameInAllRows; };
    if (std::ranges::all_of(columns, isSame)) columns.front().form = Form::cells;
  }

  [[nodiscard]] TableForms forms() const {
    TableForms forms;
    for (const Column& column : columns) forms[static_cast<std::size_t>(column.form)] = true;
    return forms;
  }

  void appendHeading(std::string& text, std::string_view name) const {
    text.append("\n").append(name).append(":");
    char separator = ' ';
    std::string_view parentBefore;
    for (const Column& column : columns) {
      text += std::exchange(separator, '\t');
      if (column.form == Form::sameInAllRows) text += '(';
      const std::string_view path = column.name.path;
      const std::string_view parent = path.substr(0, column.name.parentSize);
      const bool isSibling = !parent.empty() && parent == parentBefore;
      text += isSibling ? path.substr(parent.size()) : path;
      parentBefore = parent;
      if (column.form != Form::cells) {
        text += '=';
        appendSaid(text, column);
      }
      if (column.form == Form::sameInAllRows) text += ')';
    }
  }

  enum class Outcome { done, tooLong, notAsSampled };

  /// Ends as soon as `text` has more than `mostBytes`, or a row is not as the heading says.
  Outcome appendRows(std::string& text, std::size_t mostBytes) {
    std::vector<Column> varying;
    std::vector<std::size_t> numbers;
    for (const Column& column : columns) {
      if (column.form == Form::sameInAllRows) continue;
      varying.push_back(column);
      numbers.push_back(column.name.number);
    }
    for (Place row = rows.begin(); row != rows.end(); row = rows.next(row)) {
      if (!rows.readLikeRemembered(row)) {
        if (!rows.read(row) || !isAsSaid()) return Outcome::notAsSampled;
        rows.remember(row, numbers);
      }
      text += '\n';
      // Tabs are written before the cell that needs them, so a row ends with its last one.
      std::size_t tabs = 0;
      for (const Column& column : varying) {
        const Place cell = rows.cell(column.name.number);
        if (!isEmpty(column, cell)) {
          text.append(std::exchange(tabs, 0), '\t');
          if (!appendCell(text, column, cell)) return Outcome::notAsSampled;
        }
        ++tabs;
      }
      if (text.size() > mostBytes) return Outcome::tooLong;
    }
    return Outcome::done;
  }

 private:
  void note(Content& content, Place cell, std::size_t& found) const {
    content.holdsOnlyStrings &= rows.isString(cell);
    if (!replaced.empty() && replacementOf(cell) != nullptr) {
      content.holdsReplaced = true;
      ++found;
    }
    if (content.count++ == 0) {
      content.firstValue = rows.textOf(cell);
    } else if (content.isSame) {
      content.isSame = areSame(rows.textOf(cell), content.firstValue);
    }
  }

  [[nodiscard]] const JsonText::Replacement* replacementOf(Place cell) const {
    const auto found = std::ranges::lower_bound(
        replaced, cell, {}, [](const JsonText::Replacement& each) { return each.value.place(); });
    return found != replaced.end() && found->value.place() == cell ? &*found : nullptr;
  }

  /// Takes what saves most by the rows that were read: one value for all, the value that most of
  /// them have, or what their texts begin with.
  void chooseForm(Column& column) const {
    const Content& content = column.content;
    if (content.count == rowsRead && content.isSame) {
      const std::size_t size = content.firstValue.size();
      column.setForm(Form::sameInAllRows, content.firstValue, rows.count() * (size + 1), size + 3);
      return;
    }
    std::vector<std::string_view> values;
    std::vector<std::string_view> stems;
    for (const Rows::Cells& cells : sample) {
      const Place cell = cells[column.name.number];
      if (cell == Rows::missing) continue;
      values.push_back(rows.textOf(cell));
      if (content.holdsOnlyStrings && rows.isPlainString(cell)) {
        const std::string_view stem = stemOf(withoutQuotes(values.back()));
        if (!stem.empty()) stems.push_back(stem);
      }
    }
    const auto inAllRows = [&](std::size_t size) { return size * rows.count() / sample.size(); };
    const auto [value, usual] = mostFrequent(values);
    // A value that most rows do not have is better read in its place.
    if (2 * usual >= sample.size()) {
      column.setForm(Form::usualValue, value, inAllRows(usual * value.size()),
                     inAllRows(sample.size() - values.size()) + value.size() + 1);
    }
    const auto [stem, shared] = mostFrequent(stems);
    column.setForm(Form::prefix, stem, inAllRows(shared * stem.size()),
                   inAllRows(2 * (values.size() - shared)) + stem.size() + 2);
  }

  /// Whether the row that was read has no further columns, and in all rows the same what it should.
  [[nodiscard]] bool isAsSaid() const {
    return rows.columnCount() == columns.size() &&
           std::ranges::all_of(columns, [this](const Column& column) {
             const Place cell = rows.cell(column.name.number);
             return column.form != Form::sameInAllRows ||
                    (cell != Rows::missing && areSame(rows.textOf(cell), column.said));
           });
  }

  [[nodiscard]] bool isEmpty(const Column& column, Place cell) const {
    if (column.form != Form::usualValue) return cell == Rows::missing;
    return cell != Rows::missing && areSame(rows.textOf(cell), column.said);
  }

  /// Of a cell that is not empty. Returns false for one that can't be in its column.
  bool appendCell(std::string& text, const Column& column, Place cell) const {
    if (cell == Rows::missing) {
      text += '-';
    } else if (column.form == Form::prefix) {
      if (!rows.isString(cell)) return false;
      appendAfterPrefix(text, column.said, cell);
    } else {
      const auto* replacement = column.content.holdsReplaced ? replacementOf(cell) : nullptr;
      if (replacement == nullptr) {
        appendValue(text, rows.textOf(cell));
      } else {
        appendValue(text, JsonText(replacement->by).str());
      }
    }
    return true;
  }

  void appendAfterPrefix(std::string& text, std::string_view prefix, Place cell) const {
    const std::string_view json = rows.textOf(cell);
    std::string_view rest;
    if (rows.isPlainString(cell) && withoutQuotes(json).starts_with(prefix)) {
      rest = withoutQuotes(json).substr(prefix.size());
    }
    const bool isPlain = !rest.empty() && rest.front() != '"' && rest.front() != '@';
    text += isPlain ? rest : json;
  }

  Rows rows;
  const std::span<const JsonText::Replacement> replaced;
  std::size_t rowsRead = 0;
  std::vector<Rows::Cells> sample;
  /// In the order of the members.
  std::vector<Column> columns;
};

}  // namespace

std::optional<TableForms> appendTable(std::string& text, std::string_view name,
                                      const JsonValue& array,
                                      std::span<const JsonText::Replacement> replaced,
                                      std::size_t mostBytes) {
  const std::size_t before = text.size();
  // Where a few rows tell what the others are like, all of them are read only once.
  for (const bool isSampled : {true, false}) {
    if (isSampled && !replaced.empty()) continue;
    Table table(array, replaced);
    if (!table.findColumns(isSampled)) return std::nullopt;
    table.chooseForms();
    table.appendHeading(text, name);
    const auto outcome = table.appendRows(text, before + mostBytes);
    if (outcome == Table::Outcome::done) return table.forms();
    text.resize(before);
    if (outcome == Table::Outcome::tooLong) break;
  }
  return std::nullopt;
}

}  // namespace quillmere
