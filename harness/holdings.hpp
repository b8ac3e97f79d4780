// Descriptors, threads and memory that a process uses. Linux only: read from /proc.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>

namespace quillmere {

struct Holdings {
  std::size_t descriptors = 0;
  std::size_t threads = 0;

  bool operator==(const Holdings&) const = default;
};

/// What the process holds now. Throws `std::filesystem::filesystem_error` when it has ended.
[[nodiscard]] Holdings holdingsOf(pid_t process);

/// Resident memory, the process's share of it (PSS), and the most that was ever resident. In bytes.
enum class Memory { resident, share, peak };
/// Throws `std::runtime_error` when the process has ended.
[[nodiscard]] double memoryOf(pid_t process, Memory memory);

}  // namespace quillmere
