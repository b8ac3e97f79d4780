// What responses say about a screen.
#pragma once

#include <cstddef>

#include "json/writer.hpp"
#include "simulator/phone.hpp"

namespace quillmere::simulator {

/// The view's nodes, at most `maximumNodes` of them, and their total number. The content of a web
/// view counts only with `includeNonInteractive`. Pure.
[[nodiscard]] JsonText uiStateOf(const View& view, bool includeNonInteractive,
                                 std::size_t maximumNodes);

/// The package in front and the view's signature. Pure.
[[nodiscard]] JsonText visibleStateOf(const View& view);

/// What changed from one view to another: nodes added, removed and changed, by resource id. Pure.
[[nodiscard]] JsonText uiDiffOf(const View& before, const View& after);

}  // namespace quillmere::simulator
