// Ownership of a file descriptor as a type.
#pragma once

#include <unistd.h>

#include <utility>

namespace quillmere {

/// Owns one open file descriptor and closes it when it goes out of scope. Nothing else in the
/// program calls `close`.
class Descriptor {
 public:
  /// Owns nothing.
  Descriptor() = default;
  /// Takes ownership of `number`; a negative one means nothing.
  explicit Descriptor(int number) : held(number) {}
  Descriptor(Descriptor&& other) noexcept : held(std::exchange(other.held, none)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(held, other.held);
    return *this;
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    // No retry after EINTR: Linux has freed the number by then, and another thread may own it.
    if (held >= 0) ::close(held);
  }

  /// The number, for system calls only; it stays owned here. Negative when nothing is owned.
  [[nodiscard]] int number() const { return held; }
  [[nodiscard]] bool isOpen() const { return held >= 0; }

 private:
  static constexpr int none = -1;
  int held = none;
};

}  // namespace quillmere
