// A binary list is a header, the objects, a table of the objects' places, and a trailer that says
// where the table is and which object is the top. Objects refer to each other by their number in
// the table, so we find the one string we want without looking at any other object.
#include <utf8proc.h>

#include <array>
#include <cstdint>

#include "platform/property_list.hpp"

namespace quillmere {

namespace {

constexpr std::size_t headerBytes = 8;
constexpr std::size_t trailerBytes = 32;
constexpr std::size_t bytesPerUtf16Unit = 2;

enum Kind : std::uint8_t { integer = 0x1, asciiString = 0x5, utf16String = 0x6, dictionary = 0xD };

struct Item {
  std::uint8_t kind = 0;
  /// In elements of its kind: bytes, UTF-16 units, members.
  std::size_t count = 0;
  std::size_t contentAt = 0;
};

/// Reads the objects where they are. We must not unfold them into a tree: objects may be referred
/// to many times, so 200 bytes can describe a tree that fits no memory.
class Reader {
 public:
  explicit Reader(std::string_view all) : data(all) {
    // A reader needs nothing from the trailer's first six bytes.
    const std::size_t trailer = data.size() - trailerBytes;
    offsetBytes = number(trailer + 6, 1).value_or(0);
    referenceBytes = number(trailer + 7, 1).value_or(0);
    objectCount = number(trailer + 8, 8).value_or(0);
    top = number(trailer + 16, 8).value_or(0);
    tableAt = number(trailer + 24, 8).value_or(0);
  }

  [[nodiscard]] std::optional<std::string> stringUnder(std::string_view key) const {
    const auto list = item(top);
    if (!list || list->kind != dictionary) return std::nullopt;
    for (std::size_t i = 0; i < list->count; ++i) {
      const auto name = member(*list, i);
      // A list in which a key refers to nothing is broken, so we do not look at its other keys.
      if (!name) return std::nullopt;
      // The key we look for is ASCII, which writers store as such.
      if (name->kind != asciiString || bytesOf(*name) != key) continue;
      // A dictionary refers to all its keys first, and then to all its values.
      const auto value = member(*list, list->count + i);
      return value ? textOf(*value) : std::nullopt;
    }
    return std::nullopt;
  }

 private:
  /// The big-endian number of `width` bytes, at most 8, at `at`.
  [[nodiscard]] std::optional<std::uint64_t> number(std::size_t at, std::size_t width) const {
    if (width == 0 || width > 8 || at > data.size() || width > data.size() - at) {
      return std::nullopt;
    }
    std::uint64_t value = 0;
    for (const char byte : data.substr(at, width)) {
      value = (value << 8U) | static_cast<unsigned char>(byte);
    }
    return value;
  }

  [[nodiscard]] std::optional<Item> item(std::uint64_t index) const {
    // Both limits keep the product below from overflowing.
    if (tableAt > data.size() || index >= objectCount || index > data.size()) return std::nullopt;
    const auto at = number(tableAt + index * offsetBytes, offsetBytes);
    if (!at || *at < headerBytes || *at >= tableAt) return std::nullopt;

    // The upper half of an object's first byte is its kind, the lower half its count. A count that
    // does not fit there is an integer object of its own, which follows.
    constexpr std::uint64_t countFollows = 0xF;
    const std::uint64_t marker = *number(*at, 1);
    Item found{.kind = static_cast<std::uint8_t>(marker >> 4U),
               .count = marker & 0xFU,
               .contentAt = *at + 1};
    if (found.count == countFollows) {
      const auto countMarker = number(found.contentAt, 1);
      if (!countMarker || *countMarker >> 4U != integer) return std::nullopt;
      const std::size_t width = std::size_t{1} << (*countMarker & 0xFU);
      const auto count = number(found.contentAt + 1, width);
      if (!count) return std::nullopt;
      found.count = *count;
      found.contentAt += 1 + width;
    }
    // Each element takes at least one byte, and sums with such a count can't overflow.
    if (found.count > data.size()) return std::nullopt;
    return found;
  }

  [[nodiscard]] std::optional<Item> member(const Item& list, std::size_t position) const {
    const auto index = number(list.contentAt + position * referenceBytes, referenceBytes);
    return index ? item(*index) : std::nullopt;
  }

  [[nodiscard]] std::optional<std::string_view> bytesOf(const Item& string) const {
    const std::size_t size = string.count * (string.kind == utf16String ? bytesPerUtf16Unit : 1);
    if (string.contentAt > tableAt || size > tableAt - string.contentAt) return std::nullopt;
    return data.substr(string.contentAt, size);
  }

  [[nodiscard]] std::optional<std::string> textOf(const Item& string) const {
    const auto bytes = bytesOf(string);
    if (!bytes || string.kind == asciiString) return std::optional<std::string>(bytes);
    if (string.kind != utf16String) return std::nullopt;

    std::string text;
    for (std::size_t at = string.contentAt; at < string.contentAt + bytes->size();) {
      auto point = static_cast<utf8proc_int32_t>(*number(at, bytesPerUtf16Unit));
      at += bytesPerUtf16Unit;
      if (point >= 0xD800 && point <= 0xDBFF && at < string.contentAt + bytes->size()) {
        const auto low = static_cast<utf8proc_int32_t>(*number(at, bytesPerUtf16Unit));
        if (low < 0xDC00 || low > 0xDFFF) return std::nullopt;
        point = 0x10000 + ((point - 0xD800) << 10) + (low - 0xDC00);
        at += bytesPerUtf16Unit;
      }
      // A lone surrogate comes out as bytes that are not UTF-8.
      std::array<utf8proc_uint8_t, 4> encoded{};
      const auto length = utf8proc_encode_char(point, encoded.data());
      text.append(reinterpret_cast<const char*>(encoded.data()), static_cast<std::size_t>(length));
    }
    return text;
  }

  const std::string_view data;
  std::uint64_t offsetBytes = 0;
  std::uint64_t referenceBytes = 0;
  std::uint64_t objectCount = 0;
  std::uint64_t top = 0;
  std::uint64_t tableAt = 0;
};

}  // namespace

bool isBinaryPropertyList(std::string_view data) {
  return data.starts_with("bplist");
}

std::optional<std::string> binaryPropertyListString(std::string_view data, std::string_view key) {
  if (!isBinaryPropertyList(data) || data.size() < headerBytes + trailerBytes) return std::nullopt;
  return Reader(data).stringUnder(key);
}

}  // namespace quillmere
