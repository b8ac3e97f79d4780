#include "support/snapshot.hpp"

#include <algorithm>
#include <fstream>
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

  constexpr int mostShown = 10;
  int shown = 0;
  auto result = testing::AssertionFailure() << path << " differs\n";
  for (std::size_t i = 0; i < std::max(expected.size(), actual.size()) && shown < mostShown; ++i) {
    const std::string before = i < expected.size() ? expected[i] : "";
    const std::string now = i < actual.size() ? actual[i] : "";
    if (before == now) continue;
    result << "line " << i + 1 << "\n-" << before << "\n+" << now << "\n";
    ++shown;
  }
  return result;
}

}  // namespace quillmere
