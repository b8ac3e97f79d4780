#include "pictures/area_average.hpp"

#include <algorithm>

namespace quillmere {

PictureSize Scale::applied(PictureSize size) const {
  const auto side = [this](unsigned length) {
    return static_cast<unsigned>((std::size_t{length} * to + of - 1) / of);
  };
  return {side(size.width), side(size.height)};
}

AreaAverage::AreaAverage(PictureSize original, Scale wanted)
    : size(original),
      scale(wanted),
      pixels{wanted.applied(original), {}},
      missing(wanted.of),
      columnSums(pixels.size.rowBytes()),
      sums(pixels.size.rowBytes()) {
  static_cast<void>(pixels.bytes.room(pixels.size.rowBytes() * pixels.size.height));
}

void AreaAverage::averageColumns(const unsigned char* row) noexcept {
  std::uint32_t red = 0;
  std::uint32_t green = 0;
  std::uint32_t blue = 0;
  std::uint32_t* to = columnSums.data();
  const auto finish = [&] {
    *to++ = red;
    *to++ = green;
    *to++ = blue;
  };
  unsigned lacking = scale.of;
  for (unsigned x = 0; x < size.width; ++x, row += PictureSize::channels) {
    const unsigned part = std::min(scale.to, lacking);
    red += row[0] * part;
    green += row[1] * part;
    blue += row[2] * part;
    lacking -= part;
    if (lacking > 0) continue;
    finish();
    const unsigned rest = scale.to - part;
    red = row[0] * rest;
    green = row[1] * rest;
    blue = row[2] * rest;
    lacking = scale.of - rest;
  }
  if (lacking < scale.of) finish();
}

void AreaAverage::finishRow() noexcept {
  // Only the last row and the last column may cover less than the others.
  const unsigned rows = scale.of - missing;
  const unsigned lastColumns = size.width * scale.to - (pixels.size.width - 1) * scale.of;
  const std::size_t last = sums.size() - PictureSize::channels;
  unsigned char* to = pixels.bytes.room(sums.size());
  const auto divide = [&](std::size_t from, std::size_t end, unsigned columns) {
    // Sums are whole numbers below 2^24, which a float holds exactly. A division by whole numbers
    // would take most of the time.
    constexpr float half = 0.5F;
    const float share = 1.0F / static_cast<float>(rows * columns);
    for (std::size_t i = from; i < end; ++i) {
      to[i] = static_cast<unsigned char>(static_cast<float>(sums[i]) * share + half);
    }
  };
  divide(0, last, scale.of);
  divide(last, sums.size(), lastColumns);
  pixels.bytes.grow(sums.size());
}

void AreaAverage::addRow(const unsigned char* row) noexcept {
  averageColumns(row);
  const unsigned part = std::min(scale.to, missing);
  for (std::size_t i = 0; i < sums.size(); ++i) sums[i] += columnSums[i] * part;
  missing -= part;
  const bool isLast = ++rowsAdded == size.height;
  if (missing > 0 && !isLast) return;
  finishRow();
  const unsigned rest = scale.to - part;
  for (std::size_t i = 0; i < sums.size(); ++i) sums[i] = columnSums[i] * rest;
  missing = scale.of - rest;
  // What is left of the last row is a row of its own.
  if (isLast && rest > 0) finishRow();
}

}  // namespace quillmere
