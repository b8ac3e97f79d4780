// A failed tool call as the model reads it.
#pragma once

#include <optional>

#include "json/writer.hpp"
#include "protocol/mcp_error.hpp"
#include "tools/catalogue.hpp"

namespace quillmere {

/// The `result` of a call of `tool` that was refused, or for which the app could not be asked: the
/// failure's text, and what to do about it. As an error the model might never read it (MCP
/// 2025-11-25, "Tools", "Error Handling"). Pure.
[[nodiscard]] std::optional<JsonText> showCompatFailure(const Tool& tool, const MCPError& failure);

}  // namespace quillmere
