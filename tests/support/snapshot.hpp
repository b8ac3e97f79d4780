// Comparison with texts that are kept in files.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "platform/json_value.hpp"

namespace quillmere {

/// Whether `value`, indented and with sorted keys, is the file `name` in tests/snapshots. If not,
/// the message shows the first lines that differ, `-` for the file's and `+` for the program's.
[[nodiscard]] testing::AssertionResult matchesSnapshot(const JsonObject& value,
                                                       std::string_view name);

}  // namespace quillmere
