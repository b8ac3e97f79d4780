#include "support/snapshot.hpp"

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

  // What is alike before and behind the difference is of no interest.
  std::size_t head = 0;
  while (head < expected.size() && head < actual.size() && expected[head] == actual[head]) ++head;
  std::size_t oldEnd = expected.size();
  std::size_t newEnd = actual.size();
  for (; oldEnd > head && newEnd > head && expected[oldEnd - 1] == actual[newEnd - 1]; --oldEnd) {
    --newEnd;
  }
  auto result = testing::AssertionFailure() << path << ":" << head + 1 << " differs\n";
  for (std::size_t i = head; i < oldEnd; ++i) result << "-" << expected[i] << "\n";
  for (std::size_t i = head; i < newEnd; ++i) result << "+" << actual[i] << "\n";
  return result;
}

}  // namespace quillmere
