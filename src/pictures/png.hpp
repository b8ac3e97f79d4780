// PNG files (ISO/IEC 15948), read and written with libpng.
#pragma once

#include <optional>
#include <string_view>

#include "pictures/area_average.hpp"
#include "pictures/codec.hpp"

namespace quillmere {

/// The size of the file that `base64` encodes, or nothing when `readPng` would not take it. Reads
/// only its beginning.
[[nodiscard]] std::optional<PictureSize> sizeOfPng(std::string_view base64);

/// Hands all rows of the file on, or fails if the file is damaged or truncated. Transparent
/// pixels show white behind them. Ignores gamma and colour profiles. Throws `std::bad_alloc`.
[[nodiscard]] bool readPng(std::string_view base64, AreaAverage& average);

/// Writes a file, or fails if the room is too small.
[[nodiscard]] bool writePng(const Pixels& pixels, FileRoom& room);

}  // namespace quillmere
