// What answers tell of a screen.
#pragma once

#include <cstddef>

#include "platform/json_value.hpp"
#include "simulator/phone.hpp"

namespace quillmere {

/// The view's nodes, at most `maximumNodes` of them, with how many there are. What stands inside a
/// web view counts only with `includeNonInteractive`. Pure.
[[nodiscard]] JsonObject uiStateOf(const View& view, bool includeNonInteractive,
                                   std::size_t maximumNodes);

/// Which package is in front and what the view's signature is. Pure.
[[nodiscard]] JsonObject visibleStateOf(const View& view);

/// What changed from one view to another: nodes added, removed and changed, by resource id. Pure.
[[nodiscard]] JsonObject uiDiffOf(const View& before, const View& after);

}  // namespace quillmere
