// JPEG files (ITU-T T.81, JFIF), read and written with libjpeg-turbo.
#pragma once

#include <optional>
#include <string_view>

#include "pictures/area_average.hpp"
#include "pictures/codec.hpp"

namespace quillmere {

/// The size of the file that `base64` encodes, or nothing when `readJpeg` would not take it: it has
/// four colours, or a camera's note to turn it, which clients may or may not follow. Reads only its
/// beginning.
[[nodiscard]] std::optional<PictureSize> sizeOfJpeg(std::string_view base64);

/// Hands all rows of the file on, or fails if the file is damaged or truncated.
[[nodiscard]] bool readJpeg(std::string_view base64, AreaAverage& average);

/// Writes a file, or fails if the room is too small.
[[nodiscard]] bool writeJpeg(const Pixels& pixels, FileRoom& room);

}  // namespace quillmere
