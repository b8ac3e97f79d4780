// What answers say of a screen.
#pragma once

#include <cstddef>

#include "json/writer.hpp"
#include "simulator/phone.hpp"

namespace quillmere::simulator {

/// The view's nodes, at most `maximumNodes` of them, with how many there are. What is inside a
/// web view counts only with `includeNonInteractive`. Pure.
[[nodiscard]] JsonText uiStateOf(const View& view, bool includeNonInteractive,
                                 std::size_t maximumNodes);

/// Which package is in front and what the view's signature is. Pure.
[[nodiscard]] JsonText visibleStateOf(const View& view);

/// What changed from one view to another: nodes added, removed and changed, by resource id. Pure.
[[nodiscard]] JsonText uiDiffOf(const View& before, const View& after);

}  // namespace quillmere::simulator
