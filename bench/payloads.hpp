// What the desktop app of the benchmarks answers.
#pragma once

#include <cstddef>
#include <string>

namespace quillmere::bench {

inline constexpr std::size_t image4MbBytes = 4 << 20;
inline constexpr std::size_t image20MbBytes = 20 << 20;
inline constexpr std::size_t uiNodeCount = 20'000;

/// What a tap is answered with.
[[nodiscard]] std::string smallPayload();

/// A screenshot: one long text of base64, `bytes` in all.
[[nodiscard]] std::string imagePayload(std::size_t bytes);

/// A large page: many small objects.
[[nodiscard]] std::string uiPayload(std::size_t nodes);

}  // namespace quillmere::bench
