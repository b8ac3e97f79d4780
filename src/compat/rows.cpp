#include "compat/rows.hpp"

#include <algorithm>

#include "compat/short_text.hpp"

namespace quillmere {

namespace {

/// How many keys lead to a column at most.
constexpr unsigned deepestColumn = 4;
/// A key may be compared with all others of its level, so none may be long.
constexpr std::size_t longestKey = 64;
/// What is longer is most of the app response: a table would not make that much shorter, and would
/// copy it.
constexpr std::size_t longestCell = 65'536;

std::string_view withoutQuotes(std::string_view string) {
  return string.substr(1, string.size() - 2);
}

/// Whether a key can be in a heading as it is, and is taken for nothing else there.
bool isFitForPath(std::string_view key) {
  const std::string_view text = withoutQuotes(key);
  return !text.empty() && text.size() <= longestKey && !text.starts_with('(') &&
         text.find_first_of(".=\\") == std::string_view::npos;
}

}  // namespace

Rows::Rows(const JsonValue& array)
    : document(array.holder()),
      bytes(document.textOf(0).data() - document.tokenAt(0).offset()),
      top(array.place()) {}

bool Rows::read(Place row) {
  std::fill_n(current.begin(), columns, missing);
  return document.tokenAt(row).kind() == Kind::object && readMembers(row, members, 1);
}

void Rows::remember(Place row, std::span<const std::size_t> varying) {
  remembered.cells.clear();
  remembered.tokens = 0;
  const char* from = bytes + document.tokenAt(row).offset();
  for (const std::size_t column : varying) {
    const Place cell = current[column];
    if (cell == missing) continue;
    if (document.tokenAt(cell).isContainer()) return;
    const std::string_view text = textOf(cell);
    remembered.cells.push_back(
        {.column = column, .tokensBefore = cell - row, .textBefore = {from, text.data()}});
    from = text.data() + text.size();
  }
  remembered.tokens = document.next(row) - row;
  remembered.end = {from, endOf(row)};
}

bool Rows::readLikeRemembered(Place row) {
  if (document.next(row) - row != remembered.tokens) return false;
  const char* from = bytes + document.tokenAt(row).offset();
  for (const auto& [column, tokensBefore, textBefore] : remembered.cells) {
    const Place cell = row + tokensBefore;
    const JsonDocument::Token& token = document.tokenAt(cell);
    const char* const text = bytes + token.offset();
    if (token.isContainer() || token.length() > longestCell || text < from ||
        std::string_view(from, text) != textBefore) {
      return false;
    }
    current[column] = cell;
    from = text + token.length();
  }
  return std::string_view(from, endOf(row)) == remembered.end;
}

std::vector<Rows::Column> Rows::columnsInOrder() const {
  std::vector<Column> list;
  list.reserve(columns);
  appendColumns(list, members, {});
  return list;
}

bool Rows::readMembers(Place object, std::vector<Member>& level, unsigned depth) {
  const Place end = document.next(object) - 1;
  std::size_t at = 0;
  for (Place key = object + 1; key != end;) {
    const std::string_view text = textOf(key);
    const bool isNext = at < level.size() && areSame(level[at].key, text);
    if (!isNext && !findMember(text, level, at)) return false;
    Member& member = level[at++];
    const Place value = key + 1;
    key = document.next(value);
    if (isTakenApart(value, depth)) {
      if (!readMembers(value, member.members, depth + 1)) return false;
      continue;
    }
    const bool isContainer = document.tokenAt(value).isContainer();
    if ((isContainer && !isFlat(value)) || textOf(value).size() > longestCell) return false;
    if (member.column == mostColumns) {
      if (columns == mostColumns) return false;
      member.column = columns++;
    }
    current[member.column] = value;
  }
  return true;
}

/// Moves `at` to the member of that key, which may be a new one. Members have one order in all
/// rows, so it is not before `at`; thus no row has a key twice, either.
bool Rows::findMember(std::string_view key, std::vector<Member>& level, std::size_t& at) {
  const auto isIt = [key](const Member& member) { return areSame(member.key, key); };
  const auto place = level.begin() + static_cast<std::ptrdiff_t>(at);
  const auto found = std::find_if(place, level.end(), isIt);
  if (found != level.end()) {
    at = static_cast<std::size_t>(found - level.begin());
    return true;
  }
  if (!isFitForPath(key) || std::any_of(level.begin(), place, isIt)) return false;
  level.insert(place, Member{.key = key});
  return true;
}

bool Rows::isTakenApart(Place value, unsigned depth) const {
  const bool isEmpty = document.next(value) == value + 2;
  return document.tokenAt(value).kind() == Kind::object && !isEmpty && depth < deepestColumn;
}

/// Whether an array or object holds no further ones.
bool Rows::isFlat(Place container) const {
  const Place last = document.next(container) - 1;
  const bool isObject = document.tokenAt(container).kind() == Kind::object;
  return last - container - 1 == document.tokenAt(last).count() * (isObject ? 2 : 1);
}

const char* Rows::endOf(Place row) const {
  return bytes + document.tokenAt(document.next(row) - 1).offset() + 1;
}

void Rows::appendColumns(std::vector<Column>& list, const std::vector<Member>& level,
                         const std::string& parent) {
  for (const Member& member : level) {
    const std::string path =
        (parent.empty() ? "" : parent + '.') + std::string(withoutQuotes(member.key));
    if (member.column != mostColumns) {
      list.push_back({.number = member.column, .path = path, .parentSize = parent.size()});
    }
    appendColumns(list, member.members, path);
  }
}

}  // namespace quillmere
