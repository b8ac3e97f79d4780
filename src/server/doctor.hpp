// The report of `--doctor`: how the server sees its surroundings.
#pragma once

#include "json/writer.hpp"

namespace quillmere {

/// The report, made by the same functions as a tool call: the same candidates, the same connect
/// with the same failure texts. Only opens a connection to the desktop app and closes it again.
/// Blocks up to 3 seconds for each candidate. Cannot fail.
[[nodiscard]] JsonText doctorPayload();

}  // namespace quillmere
