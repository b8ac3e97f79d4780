// What the decoders and encoders of all kinds of pictures have in common.
#pragma once

#include <csetjmp>
#include <cstddef>

#include "pictures/pixels.hpp"

namespace quillmere {

/// More than any phone or tablet shows. Files that declare more are not decoded.
inline constexpr std::size_t mostPixels = 50'000'000;
/// The limit for pictures that cannot be read row by row and so have to be in memory as a whole.
inline constexpr std::size_t mostPixelsAtOnce = 16'000'000;

[[nodiscard]] inline bool isReadable(PictureSize size, bool isAtOnce) {
  return size.pixels() > 0 && size.pixels() <= (isAtOnce ? mostPixelsAtOnce : mostPixels);
}

/// Carries out `step`, which a C library may end in the middle by a jump to `failed`. False if it
/// did. The jump runs no destructors: `step` must leave what needs one to its caller.
template <typename Step>
[[nodiscard]] bool succeeds(std::jmp_buf& failed, const Step& step) {
  // NOLINTNEXTLINE(cert-err52-cpp): the way in which these libraries report errors.
  if (setjmp(failed) != 0) return false;
  step();
  return true;
}

/// Room for a file that is being written.
struct FileRoom {
  unsigned char* start = nullptr;
  std::size_t bytes = 0;
  /// How many bytes the file has.
  std::size_t used = 0;
};

}  // namespace quillmere
