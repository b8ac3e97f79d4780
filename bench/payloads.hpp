// App responses for the benchmarks.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace quillmere::bench {

/// `head`, as many times `piece` as fit, and `tail`: at most `bytes`.
[[nodiscard]] std::string filled(std::string_view head, std::string_view piece,
                                 std::string_view tail, std::size_t bytes);

/// The response to a tap.
[[nodiscard]] std::string smallPayload();

/// A screenshot: one long text of base64, `bytes` in all (or a few fewer), with each slash written
/// as `slash`.
[[nodiscard]] std::string imagePayload(std::size_t bytes, std::string_view slash = "/");

/// A screenshot of 1080 x 2400 that shows a photo: a PNG of about 5 MB.
[[nodiscard]] std::string photoPayload();

/// A page of an Android app in Chinese: nodes of 13 members and about 290 bytes.
[[nodiscard]] std::string uiPayload(std::size_t nodes);

/// The payload called `name`: its kind and, if it has a size, a blank and its number of bytes (or
/// nodes), as in "image 4194304". Empty for an unknown kind.
[[nodiscard]] std::string payloadCalled(std::string_view name);

}  // namespace quillmere::bench
