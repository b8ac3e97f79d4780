#include "pictures/jpeg.hpp"

// Needs FILE and size_t, and does not include what declares them.
#include <cstdio>
// clang-format off
#include <jpeglib.h>
// clang-format on

#include <algorithm>
#include <array>
#include <cstdlib>

#include "platform/base64.hpp"

namespace quillmere {

namespace {

/// Text stays readable; more would mostly store noise.
constexpr int quality = 80;

/// Each scan goes through the whole picture, and may itself be short. Cameras and libraries write
/// about ten.
constexpr int mostScans = 50;

/// What the library's callbacks know their file by: a member that points to one of these.
struct Errors : jpeg_error_mgr {
  std::jmp_buf failed;

  Errors() {
    jpeg_std_error(this);
    error_exit = [](j_common_ptr file) {
      // NOLINTNEXTLINE(cert-err52-cpp): see `succeeds`.
      std::longjmp(static_cast<Errors*>(file->err)->failed, 1);
    };
    // Nothing may be written to standard error.
    output_message = [](j_common_ptr) {};
  }
};

[[noreturn]] void fail(j_common_ptr file) {
  file->err->error_exit(file);
  std::abort();
}

struct Source : jpeg_source_mgr {
  Base64Reader file;
  std::array<unsigned char, 4'096> bytes;

  explicit Source(std::string_view base64) : file(base64) {
    next_input_byte = nullptr;
    bytes_in_buffer = 0;
    init_source = [](j_decompress_ptr) {};
    fill_input_buffer = fill;
    skip_input_data = skip;
    resync_to_restart = jpeg_resync_to_restart;
    term_source = [](j_decompress_ptr) {};
  }

  static boolean fill(j_decompress_ptr reading) {
    auto& source = *static_cast<Source*>(reading->src);
    source.next_input_byte = source.bytes.data();
    source.bytes_in_buffer = source.file.read(source.bytes);
    if (source.bytes_in_buffer == 0) fail(reinterpret_cast<j_common_ptr>(reading));
    return TRUE;
  }

  static void skip(j_decompress_ptr reading, long count) {
    for (auto left = static_cast<std::size_t>(std::max(count, 0L)); left > 0;) {
      if (reading->src->bytes_in_buffer == 0) fill(reading);
      const std::size_t part = std::min(left, reading->src->bytes_in_buffer);
      reading->src->next_input_byte += part;
      reading->src->bytes_in_buffer -= part;
      left -= part;
    }
  }
};

struct Progress : jpeg_progress_mgr {
  Progress() {
    progress_monitor = [](j_common_ptr file) {
      if (reinterpret_cast<j_decompress_ptr>(file)->input_scan_number > mostScans) fail(file);
    };
  }
};

/// A number of `bytes` bytes, with the first byte as the highest or the lowest; 0 past the end.
unsigned numberAt(std::string_view data, std::size_t at, std::size_t bytes, bool isHighestFirst) {
  unsigned number = 0;
  for (std::size_t i = 0; i < bytes && at + bytes <= data.size(); ++i) {
    const std::size_t place = at + (isHighestFirst ? i : bytes - 1 - i);
    number = number << 8U | static_cast<unsigned char>(data[place]);
  }
  return number;
}

/// Whether a segment of the kind that cameras add (Exif 2.3, section 4.6) says that the picture is
/// to be turned or mirrored.
bool isTurned(std::string_view segment) {
  constexpr std::string_view head("Exif\0\0", 6);
  constexpr unsigned orientation = 0x0112;
  constexpr unsigned upright = 1;
  constexpr std::size_t entryBytes = 12;
  if (!segment.starts_with(head)) return false;
  segment.remove_prefix(head.size());
  const bool isHighestFirst = segment.starts_with("MM");
  const std::size_t list = numberAt(segment, 4, 4, isHighestFirst);
  const std::size_t count = numberAt(segment, list, 2, isHighestFirst);
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t entry = list + 2 + i * entryBytes;
    if (numberAt(segment, entry, 2, isHighestFirst) != orientation) continue;
    return numberAt(segment, entry + 8, 2, isHighestFirst) != upright;
  }
  return false;
}

struct JpegReading {
  Errors errors;
  Source source;
  Progress progress;
  jpeg_decompress_struct file{};

  explicit JpegReading(std::string_view base64) : source(base64) { file.err = &errors; }
  ~JpegReading() { jpeg_destroy_decompress(&file); }
  JpegReading(const JpegReading&) = delete;
  JpegReading& operator=(const JpegReading&) = delete;

  [[nodiscard]] bool isTakenAtOnce() { return jpeg_has_multiple_scans(&file) != FALSE; }

  /// Reads on until the rows begin.
  [[nodiscard]] std::optional<PictureSize> header() {
    constexpr unsigned longestSegment = 0xFFFF;
    const bool isHeader = succeeds(errors.failed, [&] {
      jpeg_create_decompress(&file);
      file.src = &source;
      file.progress = &progress;
      jpeg_save_markers(&file, JPEG_APP0 + 1, longestSegment);
      jpeg_read_header(&file, TRUE);
      if (file.num_components != 1 && file.num_components != 3) {
        fail(reinterpret_cast<j_common_ptr>(&file));
      }
    });
    if (!isHeader) return std::nullopt;
    for (const auto* each = file.marker_list; each != nullptr; each = each->next) {
      if (isTurned({reinterpret_cast<const char*>(each->data), each->data_length})) {
        return std::nullopt;
      }
    }
    const PictureSize size = {file.image_width, file.image_height};
    return isReadable(size, isTakenAtOnce()) ? std::optional(size) : std::nullopt;
  }
};

struct Target : jpeg_destination_mgr {
  explicit Target(const FileRoom& room) {
    next_output_byte = room.start;
    free_in_buffer = room.bytes;
    init_destination = [](j_compress_ptr) {};
    empty_output_buffer = [](j_compress_ptr writing) -> boolean {
      fail(reinterpret_cast<j_common_ptr>(writing));
    };
    term_destination = [](j_compress_ptr) {};
  }
};

struct JpegWriting {
  Errors errors;
  jpeg_compress_struct file{};

  JpegWriting() { file.err = &errors; }
  ~JpegWriting() { jpeg_destroy_compress(&file); }
  JpegWriting(const JpegWriting&) = delete;
  JpegWriting& operator=(const JpegWriting&) = delete;
};

}  // namespace

std::optional<PictureSize> sizeOfJpeg(std::string_view base64) {
  return JpegReading(base64).header();
}

bool readJpeg(std::string_view base64, AreaAverage& average) {
  JpegReading reading(base64);
  const auto size = reading.header();
  if (!size) return false;
  Buffer<unsigned char> rowBytes;
  unsigned char* row = rowBytes.room(size->rowBytes());
  jpeg_decompress_struct& file = reading.file;
  const bool isWhole = succeeds(reading.errors.failed, [&] {
    file.out_color_space = JCS_RGB;
    jpeg_start_decompress(&file);
    while (file.output_scanline < file.output_height) {
      jpeg_read_scanlines(&file, &row, 1);
      average.addRow(row);
    }
    jpeg_finish_decompress(&file);
  });
  // Damage that the library can paint over is a warning to it.
  return isWhole && reading.errors.num_warnings == 0;
}

bool writeJpeg(const Pixels& pixels, FileRoom& room) {
  JpegWriting writing;
  Target target(room);
  jpeg_compress_struct& file = writing.file;
  const bool isWhole = succeeds(writing.errors.failed, [&] {
    jpeg_create_compress(&file);
    file.dest = &target;
    file.image_width = pixels.size.width;
    file.image_height = pixels.size.height;
    file.input_components = PictureSize::channels;
    file.in_color_space = JCS_RGB;
    jpeg_set_defaults(&file);
    jpeg_set_quality(&file, quality, TRUE);
    jpeg_start_compress(&file, TRUE);
    while (file.next_scanline < file.image_height) {
      // The library only reads it.
      auto* row = const_cast<unsigned char*>(pixels.row(file.next_scanline));
      jpeg_write_scanlines(&file, &row, 1);
    }
    jpeg_finish_compress(&file);
  });
  room.used = room.bytes - target.free_in_buffer;
  return isWhole;
}

}  // namespace quillmere
