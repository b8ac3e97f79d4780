// The pictures of a response as items of a result's content, in a size that clients and models
// take.
#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "compat/pictures.hpp"
#include "json/writer.hpp"
#include "pictures/fit.hpp"

namespace quillmere {

/// The longest line, in characters, that every client takes as a response.
inline constexpr std::size_t longestLine = 1'000'000;

struct PictureItem {
  Picture picture;
  /// Its place in the content, from 1.
  std::size_t number;
  /// Empty when the picture goes out as it came.
  std::optional<FittedPicture> fitted = {};

  /// What stands in the picture's place: where it is, and how to find a place of the screen on it.
  [[nodiscard]] JsonText::Replacement note() const;
  /// The item itself.
  [[nodiscard]] JsonText json() const;
};

/// An item for each picture in `value`, as it came; the first one has `firstNumber`.
[[nodiscard]] std::vector<PictureItem> pictureItems(const JsonValue& value,
                                                    std::size_t firstNumber);

/// Scales down the pictures that models would not take, or with which the line would be longer than
/// `longestLine`; `otherBytes` is what the content has besides them. They share the line: from the
/// shortest picture to the longest, each may have an equal part of what is left, but at least
/// 50,000 characters, since less would show nothing. Returns whether a picture was changed. Throws
/// `std::bad_alloc`.
[[nodiscard]] bool fitPictures(std::vector<PictureItem>& items, std::size_t otherBytes);

}  // namespace quillmere
