// What many measurements of one thing say together.
#pragma once

#include <vector>

namespace quillmere::bench {

/// The middle one of `values`, which must not be empty; of an even number the mean of the middle
/// two.
[[nodiscard]] double median(std::vector<double> values);

/// How far `values` are apart: the distance between their quartiles as a part of their median.
[[nodiscard]] double spread(std::vector<double> values);

}  // namespace quillmere::bench
