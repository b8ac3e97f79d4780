#include "bench/statistics.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace quillmere::bench {

namespace {

/// The value below which `part` of the sorted `values` lie, between two of them as it falls.
double quantile(const std::vector<double>& values, double part) {
  const double place = part * static_cast<double>(values.size() - 1);
  const auto below = static_cast<std::size_t>(place);
  const std::size_t above = std::min(below + 1, values.size() - 1);
  return std::lerp(values[below], values[above], place - static_cast<double>(below));
}

}  // namespace

double median(std::vector<double> values) {
  std::ranges::sort(values);
  return quantile(values, 0.5);
}

double spread(std::vector<double> values) {
  std::ranges::sort(values);
  return (quantile(values, 0.75) - quantile(values, 0.25)) / quantile(values, 0.5);
}

}  // namespace quillmere::bench
