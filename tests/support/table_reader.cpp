#include "support/table_reader.hpp"

#include <algorithm>
#include <iterator>
#include <vector>

#include "json/document.hpp"

namespace quillmere {

namespace {

std::vector<std::string> split(std::string_view text, char separator) {
  std::vector<std::string> parts;
  for (std::size_t end = 0; end != std::string_view::npos;) {
    end = text.find(separator);
    parts.emplace_back(text.substr(0, end));
    text.remove_prefix(std::min(end, text.size() - 1) + 1);
  }
  return parts;
}

/// The JSON text that a cell or the value in a heading stands for.
std::string jsonOf(const std::string& cell) {
  try {
    const auto document = parseJson("[" + cell + "]");
    const bool isOne = document->root().asArray()->size() == 1;
    if (isOne && document->root().text() == "[" + cell + "]") return cell;
  } catch (const JsonError&) {
  }
  return '"' + cell + '"';
}

struct Heading {
  std::vector<std::string> path;
  bool isSame, hasValue, isPrefix;
  std::string said;

  /// After a column at `before`.
  Heading(std::string text, const std::vector<std::string>& before)
      : isSame(text.starts_with('(')), hasValue(text.find('=') != std::string::npos) {
    if (isSame) text = text.substr(1, text.size() - 2);
    const std::size_t equals = text.find('=');
    path = split(text.substr(0, equals), '.');
    if (path[0].empty()) path.insert(path.erase(path.begin()), before.begin(), before.end() - 1);
    if (hasValue) said = text.substr(equals + 1);
    isPrefix = hasValue && !isSame && said.ends_with('*');
    if (isPrefix) said.pop_back();
  }

  /// What the cell stands for; empty for no member.
  [[nodiscard]] std::string valueOf(const std::string& cell) const {
    if (isPrefix) {
      return cell.empty() || cell.starts_with('"') ? cell : '"' + said + cell + '"';
    }
    if (hasValue && cell.empty()) return jsonOf(said);
    return cell.empty() || (hasValue && cell == "-") ? "" : jsonOf(cell);
  }
};

std::string objectOf(const std::vector<Heading>& columns, const std::string& line) {
  const std::vector<std::string> cells = split(line, '\t');
  std::string text = "{";
  std::vector<std::string> open;
  std::size_t at = 0;
  for (const Heading& column : columns) {
    const std::string cell = column.isSame || at >= cells.size() ? "" : cells[at];
    if (!column.isSame) ++at;
    const std::string value = column.valueOf(cell);
    if (value.empty()) continue;
    const auto& path = column.path;
    const auto last = path.end() - 1;
    const auto shared = std::ranges::mismatch(open.begin(), open.end(), path.begin(), last).in1;
    text.append(static_cast<std::size_t>(open.end() - shared), '}');
    open.erase(shared, open.end());
    if (!text.ends_with('{')) text += ',';
    for (auto key = path.begin() + std::ssize(open); key != last; ++key)
      text += '"' + *key + "\":{";
    open.assign(path.begin(), last);
    text += '"' + *last + "\":" + value;
  }
  return text.append(open.size() + 1, '}');
}

}  // namespace

std::string appResponseIn(std::string_view text) {
  const std::vector<std::string> lines = split(text, '\n');
  if (lines.back().starts_with('{') || lines.back().starts_with('[')) return lines.back();
  const auto first = std::ranges::find_if(lines.rbegin(), lines.rend(), [](const auto& line) {
    const std::size_t end = line.find("1: ");
    return end > 0 && end < line.size() && line.find_first_not_of('@') == end;
  });
  auto at = static_cast<std::size_t>(lines.rend() - first) - 1;
  const std::string mark = lines.at(at).substr(0, lines[at].find('1'));
  std::string response = lines.at(at - 1);
  for (std::size_t number = 1; at < lines.size() && lines[at] != mark; ++number) {
    const std::string name = mark + std::to_string(number);
    std::vector<Heading> columns;
    for (const std::string& each : split(lines[at].substr(name.size() + 2), '\t')) {
      columns.emplace_back(each,
                           columns.empty() ? std::vector<std::string>{} : columns.back().path);
    }
    std::string array = "[";
    while (++at < lines.size() && !lines[at].starts_with(mark)) {
      array += (array == "[" ? "" : ",") + objectOf(columns, lines[at]);
    }
    response.replace(response.find('"' + name + '"'), name.size() + 2, array + "]");
  }
  return response;
}

}  // namespace quillmere
