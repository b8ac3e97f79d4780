#include "pictures/fit.hpp"

#include <algorithm>

#include "pictures/jpeg.hpp"
#include "pictures/png.hpp"
#include "platform/base64.hpp"

namespace quillmere {

namespace {

struct EasyScale {
  Scale scale;
  std::string_view multiplier;
};

/// Models multiply by these without mistakes. The scales 0.6 and 0.75 are missing because their
/// multipliers would have no end.
constexpr EasyScale scales[] = {
    {{1, 1}, "1"}, {{4, 5}, "1.25"}, {{1, 2}, "2"},   {{2, 5}, "2.5"}, {{1, 4}, "4"},
    {{1, 5}, "5"}, {{1, 10}, "10"},  {{1, 20}, "20"}, {{1, 50}, "50"}, {{1, 100}, "100"},
};

struct Format {
  std::string_view mimeType;
  std::optional<PictureSize> (*sizeOf)(std::string_view base64);
  bool (*read)(std::string_view base64, AreaAverage& average);
  bool (*write)(const Pixels& pixels, FileRoom& room);
};

constexpr Format png = {"image/png", sizeOfPng, readPng, writePng};
constexpr Format jpeg = {"image/jpeg", sizeOfJpeg, readJpeg, writeJpeg};

}  // namespace

std::optional<FittedPicture> fitPicture(std::string_view base64Text, std::string_view mimeType,
                                        std::size_t mostCharacters) {
  const Format* source = mimeType == png.mimeType    ? &png
                         : mimeType == jpeg.mimeType ? &jpeg
                                                     : nullptr;
  if (source == nullptr) return std::nullopt;
  const auto original = source->sizeOf(base64Text);
  if (!original) return std::nullopt;
  if (original->longerSide() <= longestSide && base64Text.size() <= mostCharacters) {
    return std::nullopt;
  }
  Buffer<unsigned char> file;
  FileRoom room;
  room.bytes = mostCharacters / 4 * 3;
  room.start = file.room(room.bytes);
  const Format* target = source;
  for (const auto& [scale, multiplier] : scales) {
    const PictureSize size = scale.applied(*original);
    if (size.longerSide() > longestSide) continue;
    AreaAverage average(*original, scale);
    if (!source->read(base64Text, average)) return std::nullopt;
    bool fits = target->write(average.result(), room);
    if (!fits && target == &png) {
      // At this scale, and at the next ones: a photo stays a photo.
      target = &jpeg;
      fits = target->write(average.result(), room);
    }
    if (!fits) continue;
    return FittedPicture{.base64 = base64({reinterpret_cast<const char*>(room.start), room.used}),
                         .mimeType = target->mimeType,
                         .original = *original,
                         .size = size,
                         .multiplier = multiplier};
  }
  return std::nullopt;
}

}  // namespace quillmere
