// A picture's pixels in memory.
#pragma once

#include <cstddef>

#include "platform/buffer.hpp"

namespace quillmere {

/// In pixels.
struct PictureSize {
  unsigned width = 0;
  unsigned height = 0;

  [[nodiscard]] unsigned longerSide() const { return width > height ? width : height; }
  /// Of both sides at most 2^31, so that the product cannot overflow.
  [[nodiscard]] std::size_t pixels() const { return std::size_t{width} * height; }
  /// What a row takes.
  [[nodiscard]] std::size_t rowBytes() const { return std::size_t{width} * channels; }

  /// Red, green and blue, a byte each.
  static constexpr std::size_t channels = 3;
};

/// Rows from the top, each from the left.
struct Pixels {
  PictureSize size;
  Buffer<unsigned char> bytes;

  [[nodiscard]] const unsigned char* row(std::size_t y) const {
    return bytes.data() + y * size.rowBytes();
  }
};

}  // namespace quillmere
