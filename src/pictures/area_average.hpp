// Pictures made smaller.
#pragma once

#include <cstdint>
#include <vector>

#include "pictures/pixels.hpp"

namespace quillmere {

/// How much smaller: `of` pixels become `to`. `to` is at most `of`, which is at most 100.
struct Scale {
  unsigned to = 1;
  unsigned of = 1;

  /// Each side times `to / of`, rounded up, so that no part of the picture is lost.
  [[nodiscard]] PictureSize applied(PictureSize size) const;
};

/// Makes a picture smaller while its rows arrive. Pixel x of the result is the mean of the original
/// from x * of / to to (x + 1) * of / to, and of what there is of that at the right edge; the same
/// from top to bottom. So the place of a pixel, times `of / to`, is its place in the original. One
/// thread at a time.
class AreaAverage {
 public:
  /// Throws `std::bad_alloc`.
  AreaAverage(PictureSize original, Scale wanted);

  /// Takes the next row of the original, at most as many as it has. Allocates nothing.
  void addRow(const unsigned char* row) noexcept;

  /// Whole once all rows have been added.
  [[nodiscard]] const Pixels& result() const { return pixels; }

 private:
  void averageColumns(const unsigned char* row) noexcept;
  void finishRow() noexcept;

  const PictureSize size;
  const Scale scale;
  Pixels pixels;
  unsigned rowsAdded = 0;
  /// Of a row of the result: how many parts of 1 / `to` of a row of the original it lacks.
  unsigned missing;
  /// The last row of the original and the row of the result that is being made, each as sums of
  /// columns.
  std::vector<std::uint32_t> columnSums;
  std::vector<std::uint32_t> sums;
};

}  // namespace quillmere
