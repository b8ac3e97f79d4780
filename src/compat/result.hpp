// A tool call's result as every AI client gives it to its model whole.
#pragma once

#include "json/writer.hpp"
#include "results/guidance.hpp"

namespace quillmere {

/// The `result` of `tools/call`: one text item that holds a summary and the response, with tables
/// for its lists, then each picture in it as an item of its own, which the text names in the
/// picture's place. Pictures are scaled down to fit. Throws `std::bad_alloc`.
[[nodiscard]] JsonText compatResult(const GuidedResponse& guided);

}  // namespace quillmere
