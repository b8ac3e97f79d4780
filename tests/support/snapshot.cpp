#include "support/snapshot.hpp"

#include <algorithm>
#include <fstream>
#include <ranges>
#include <sstream>
#include <vector>

#include "platform/json_writer.hpp"

namespace quillmere {

namespace {

std::vector<std::string> linesOf(std::istream&& text) {
  std::vector<std::string> lines;
  for (std::string line; std::getline(text, line);) lines.push_back(line);
  return lines;
}

}  // namespace

testing::AssertionResult matchesSnapshot(const JsonObject& value, std::string_view name) {
  const std::string path = QUILLMERE_SNAPSHOTS + std::string(name);
  const auto expected = linesOf(std::ifstream(path));
  const auto actual = linesOf(std::istringstream(indentedJson(value)));
  if (expected == actual) return testing::AssertionSuccess();

  auto result = testing::AssertionFailure() << path << " differs\n";
  if (expected.size() == actual.size()) {
    for (std::size_t line = 0; line < actual.size(); ++line) {
      if (expected[line] == actual[line]) continue;
      result << "line " << line + 1 << "\n-" << expected[line] << "\n+" << actual[line] << "\n";
    }
    return result;
  }
  // Lines were added or removed: from the first difference to the last.
  const auto firsts = std::ranges::mismatch(expected, actual);
  const auto lasts =
      std::ranges::mismatch(std::ranges::subrange(firsts.in1, expected.end()) | std::views::reverse,
                            std::ranges::subrange(firsts.in2, actual.end()) | std::views::reverse);
  result << "line " << firsts.in1 - expected.begin() + 1 << "\n";
  for (auto line = firsts.in1; line != lasts.in1.base(); ++line) result << "-" << *line << "\n";
  for (auto line = firsts.in2; line != lasts.in2.base(); ++line) result << "+" << *line << "\n";
  return result;
}

}  // namespace quillmere
