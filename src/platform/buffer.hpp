// Memory for texts and what is noted about them.
#pragma once

#include <cstddef>
#include <cstring>
#include <string_view>
#include <type_traits>
#include <utility>

#include "platform/memory.hpp"

namespace quillmere {

/// A growing array of plain values. Unlike a `std::vector` it never writes to memory before its
/// owner does, so room for a large text costs nothing until the text comes. One thread at a time.
template <typename Value>
class Buffer {
  static_assert(std::is_trivially_copyable_v<Value>);

 public:
  Buffer() = default;
  Buffer(Buffer&& other) noexcept
      : block(std::exchange(other.block, {})), count(std::exchange(other.count, 0)) {}
  Buffer& operator=(Buffer&& other) noexcept {
    std::swap(block, other.block);
    std::swap(count, other.count);
    return *this;
  }
  Buffer(const Buffer&) = delete;
  Buffer& operator=(const Buffer&) = delete;
  ~Buffer() { releaseBlock(block); }

  [[nodiscard]] std::size_t size() const { return count; }
  [[nodiscard]] bool empty() const { return count == 0; }
  [[nodiscard]] Value* data() { return static_cast<Value*>(block.start); }
  [[nodiscard]] const Value* data() const { return static_cast<const Value*>(block.start); }
  Value& operator[](std::size_t index) { return data()[index]; }
  const Value& operator[](std::size_t index) const { return data()[index]; }

  /// Makes room for at least `more` values after the present ones and returns where they belong;
  /// `grow` then says how many were put there. Invalidates pointers into the buffer. Throws
  /// `std::bad_alloc`, with nothing changed.
  [[nodiscard]] Value* room(std::size_t more) {
    reserve(count + more);
    return data() + count;
  }
  void grow(std::size_t more) { count += more; }

  /// Drops all values but the first `size`.
  void shrink(std::size_t size) { count = size; }

  /// Adds one value. Throws `std::bad_alloc`, with nothing changed.
  void push(Value value) {
    reserve(count + 1);
    data()[count++] = value;
  }

 private:
  void reserve(std::size_t size) {
    if (size * sizeof(Value) > block.bytes) growBlock(block, size * sizeof(Value));
  }

  MemoryBlock block;
  std::size_t count = 0;
};

/// Bytes as they came, such as one message or one app response.
using Bytes = Buffer<char>;

/// The bytes as text. Valid until they change.
[[nodiscard]] inline std::string_view viewOf(const Bytes& bytes) {
  return {bytes.data(), bytes.size()};
}

/// A copy of `text`. Throws `std::bad_alloc`.
[[nodiscard]] inline Bytes bytesOf(std::string_view text) {
  Bytes bytes;
  if (text.empty()) return bytes;
  std::memcpy(bytes.room(text.size()), text.data(), text.size());
  bytes.grow(text.size());
  return bytes;
}

}  // namespace quillmere
