// Pictures made small enough for AI clients and their models.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "pictures/pixels.hpp"

namespace quillmere {

/// In pixels. Some models scale longer pictures down by themselves, and would then tap in the wrong
/// places.
inline constexpr unsigned longestSide = 1'568;

struct FittedPicture {
  std::string base64;
  std::string_view mimeType;
  PictureSize original;
  PictureSize size;
  /// Multiply a place in this picture by it to get the place in the original. A decimal number,
  /// exact, of at most three digits; "1" if the size is the same.
  std::string_view multiplier;
};

/// The picture with sides of at most `longestSide` and at most `mostCharacters` of base64, which
/// must be some thousands: as large as one of a few easy scales allows, as PNG or, where that is
/// too long, as JPEG; from a JPEG as JPEG. Nothing when it fits as it is, when it is neither a PNG
/// nor a JPEG, and when it can't or should not be decoded: see `png.hpp` and `jpeg.hpp`, and
/// `mostPixels`. Takes a second and 100 MB for the largest. Pure. Throws `std::bad_alloc`.
[[nodiscard]] std::optional<FittedPicture> fitPicture(std::string_view base64,
                                                      std::string_view mimeType,
                                                      std::size_t mostCharacters);

}  // namespace quillmere
