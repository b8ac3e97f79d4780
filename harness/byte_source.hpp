// Input bytes for a reader, over each kind of descriptor and in pieces.
#pragma once

#include <array>
#include <cstddef>
#include <string_view>
#include <thread>

#include "platform/descriptor.hpp"

namespace quillmere {

/// An input that holds `wire`, and the thread that writes it, `piece` bytes at a time. May be
/// destroyed with bytes left unread.
class ByteSource {
 public:
  enum class Kind { pipe, socket, file };
  static constexpr std::array kinds = {Kind::pipe, Kind::socket, Kind::file};

  /// `wire` must outlive this. A file holds all of it at once. Throws `std::system_error`.
  ByteSource(Kind kind, std::string_view wire, std::size_t piece);
  ByteSource(const ByteSource&) = delete;
  ByteSource& operator=(const ByteSource&) = delete;
  ~ByteSource();

  [[nodiscard]] int number() const { return input.number(); }

 private:
  Descriptor input;
  std::thread writer;
};

/// An empty temporary file, unlinked already. Throws `std::system_error`.
[[nodiscard]] Descriptor makeNamelessFile();

}  // namespace quillmere
