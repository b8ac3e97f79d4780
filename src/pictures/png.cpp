#include "pictures/png.hpp"

#include <png.h>

#include <cstring>

#include "platform/base64.hpp"

namespace quillmere {

namespace {

/// The quickest. Higher levels take up to four times as long for a few percent of a photo, and so
/// does a filter chosen for each row instead of the difference from the row above
/// (docs/performance.md).
constexpr int compressionLevel = 1;
constexpr int filter = PNG_FILTER_UP;

[[noreturn]] void fail(png_structp png, png_const_charp /*message*/) {
  png_longjmp(png, 1);
}

/// Nothing may be written to standard error.
void ignore(png_structp /*png*/, png_const_charp /*message*/) {}

struct PngReading {
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, fail, ignore);
  png_infop info = png == nullptr ? nullptr : png_create_info_struct(png);
  Base64Reader file;

  explicit PngReading(std::string_view base64) : file(base64) {}
  ~PngReading() { png_destroy_read_struct(&png, &info, nullptr); }
  PngReading(const PngReading&) = delete;
  PngReading& operator=(const PngReading&) = delete;

  [[nodiscard]] bool isInterlaced() const {
    return png_get_interlace_type(png, info) != PNG_INTERLACE_NONE;
  }

  /// Reads on until the rows begin.
  [[nodiscard]] std::optional<PictureSize> header() {
    if (info == nullptr) return std::nullopt;
    PictureSize size;
    const bool isHeader = succeeds(png_jmpbuf(png), [&] {
      png_set_read_fn(png, &file, [](png_structp source, png_bytep to, std::size_t bytes) {
        auto& reader = *static_cast<Base64Reader*>(png_get_io_ptr(source));
        if (reader.read({to, bytes}) != bytes) png_error(source, "the file ends too early");
      });
      // Texts, colour profiles and times may be large, and nothing here looks at them.
      png_set_keep_unknown_chunks(png, PNG_HANDLE_CHUNK_NEVER, nullptr, -1);
      png_read_info(png, info);
      size = {png_get_image_width(png, info), png_get_image_height(png, info)};
    });
    if (!isHeader || !isReadable(size, isInterlaced())) return std::nullopt;
    return size;
  }

  /// Has the library turn every kind of pixel into red, green and blue.
  void normalize() {
    const png_uint_16 brightest = png_get_bit_depth(png, info) == 16 ? 0xFFFF : 0xFF;
    const png_color_16 white = {0, brightest, brightest, brightest, brightest};
    png_set_expand(png);
    png_set_gray_to_rgb(png);
    png_set_background_fixed(png, &white, PNG_BACKGROUND_GAMMA_SCREEN, 0, PNG_FP_1);
    png_set_scale_16(png);
  }
};

struct PngWriting {
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, fail, ignore);
  png_infop info = png == nullptr ? nullptr : png_create_info_struct(png);

  PngWriting() = default;
  ~PngWriting() { png_destroy_write_struct(&png, &info); }
  PngWriting(const PngWriting&) = delete;
  PngWriting& operator=(const PngWriting&) = delete;
};

void append(png_structp png, png_bytep from, std::size_t bytes) {
  auto& room = *static_cast<FileRoom*>(png_get_io_ptr(png));
  if (bytes > room.bytes - room.used) png_error(png, "the file is too long");
  std::memcpy(room.start + room.used, from, bytes);
  room.used += bytes;
}

}  // namespace

std::optional<PictureSize> sizeOfPng(std::string_view base64) {
  return PngReading(base64).header();
}

bool readPng(std::string_view base64, AreaAverage& average) {
  PngReading reading(base64);
  const auto size = reading.header();
  if (!size) return false;
  const std::size_t rowsHeld = reading.isInterlaced() ? size->height : 1;
  Buffer<unsigned char> rows;
  static_cast<void>(rows.room(rowsHeld * size->rowBytes()));
  return succeeds(png_jmpbuf(reading.png), [&] {
    reading.normalize();
    const int passes = png_set_interlace_handling(reading.png);
    png_read_update_info(reading.png, reading.info);
    if (png_get_rowbytes(reading.png, reading.info) != size->rowBytes()) {
      png_error(reading.png, "the rows are not as they were asked for");
    }
    for (int pass = 1; pass <= passes; ++pass) {
      for (std::size_t y = 0; y < size->height; ++y) {
        unsigned char* const row = rows.data() + y % rowsHeld * size->rowBytes();
        png_read_row(reading.png, row, nullptr);
        if (pass == passes) average.addRow(row);
      }
    }
    png_read_end(reading.png, nullptr);
  });
}

bool writePng(const Pixels& pixels, FileRoom& room) {
  const PngWriting writing;
  if (writing.info == nullptr) return false;
  room.used = 0;
  return succeeds(png_jmpbuf(writing.png), [&] {
    png_set_write_fn(writing.png, &room, append, nullptr);
    png_set_IHDR(writing.png, writing.info, pixels.size.width, pixels.size.height, 8,
                 PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    png_set_compression_level(writing.png, compressionLevel);
    png_set_filter(writing.png, PNG_FILTER_TYPE_BASE, filter);
    png_write_info(writing.png, writing.info);
    for (unsigned y = 0; y < pixels.size.height; ++y) png_write_row(writing.png, pixels.row(y));
    png_write_end(writing.png, writing.info);
  });
}

}  // namespace quillmere
