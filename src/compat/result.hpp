// A tool call's result as every AI client gives it to its model whole.
#pragma once

#include "json/writer.hpp"
#include "results/guidance.hpp"

namespace quillmere {

/// The `result` of `tools/call`: a summary, the response as JSON text, and each picture in it as an
/// item of its own, which the text names in the picture's place. It refers to the response's bytes
/// and keeps their document. Pure; cannot fail.
[[nodiscard]] JsonText compatResult(const GuidedResponse& guided);

}  // namespace quillmere
