// Texts of a few bytes, compared.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace quillmere {

/// Whether the texts are the same. For short ones a call of the library's function costs more than
/// the comparison. Pure.
[[nodiscard]] inline bool areSame(std::string_view left, std::string_view right) {
  using Word = std::uint64_t;
  constexpr std::size_t shortSize = 4 * sizeof(Word);
  const std::size_t size = left.size();
  if (size != right.size()) return false;
  if (size > shortSize) return left == right;
  std::size_t at = 0;
  for (; at + sizeof(Word) <= size; at += sizeof(Word)) {
    Word leftWord = 0;
    Word rightWord = 0;
    std::memcpy(&leftWord, left.data() + at, sizeof(Word));
    std::memcpy(&rightWord, right.data() + at, sizeof(Word));
    if (leftWord != rightWord) return false;
  }
  for (; at < size; ++at) {
    if (left[at] != right[at]) return false;
  }
  return true;
}

}  // namespace quillmere
