// What the desktop app of the benchmarks answers.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace quillmere::bench {

/// `head`, `piece` as often as it fits, and `tail`: `bytes` at most.
[[nodiscard]] std::string filled(std::string_view head, std::string_view piece,
                                 std::string_view tail, std::size_t bytes);

/// What a tap is answered with.
[[nodiscard]] std::string smallPayload();

/// A screenshot: one long text of base64, `bytes` in all (or a few fewer), with each slash written
/// as `slash`.
[[nodiscard]] std::string imagePayload(std::size_t bytes, std::string_view slash = "/");

/// A page of an Android app in Chinese: nodes of 13 members and some 290 bytes.
[[nodiscard]] std::string uiPayload(std::size_t nodes);

/// The payload called `name`: its kind and, where it has a size, a blank and how many bytes (or
/// nodes) it is to have, as in "image 4194304". Empty when there is none of that kind.
[[nodiscard]] std::string payloadCalled(std::string_view name);

}  // namespace quillmere::bench
