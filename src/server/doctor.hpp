// The report of `--doctor`: how the server sees its surroundings.
#pragma once

#include "json/writer.hpp"

namespace quillmere {

/// The report, from the same functions that a tool call goes through: the same candidates, the same
/// connect with the same failure texts. Opens a connection to the desktop app and closes it again,
/// nothing else. Blocks up to 3 seconds for each candidate. Cannot fail.
[[nodiscard]] JsonText doctorPayload();

}  // namespace quillmere
