// How a program presents itself to its client. Everything else is the same in both programs.
#pragma once

#include <optional>
#include <span>
#include <string_view>

#include "json/writer.hpp"
#include "protocol/mcp_error.hpp"
#include "results/guidance.hpp"
#include "tools/arguments.hpp"
#include "tools/catalogue.hpp"

namespace quillmere {

struct Method;

/// The questions that the server asks. Each program answers them with constant data, chosen in its
/// `main`. All functions are pure and thread-safe.
struct Dialect {
  Spelling spelled;

  /// The tool that the client calls by `name`, or null.
  const Tool* (*findTool)(std::string_view name);

  /// The entries of `tools/list`, an array.
  JsonText (*listTools)();

  /// A call's arguments as they are to be checked and sent.
  NormalizedArguments (*takeArguments)(const Tool& tool, const JsonObject& arguments);

  /// The `result` of a tool call.
  JsonText (*showResult)(const GuidedResponse& guided);

  /// The `result` of a call of `tool` that failed before the app could respond, or nothing if the
  /// failure goes out as an error.
  std::optional<JsonText> (*showFailure)(const Tool& tool, const MCPError& failure);

  /// Methods that only this program has.
  std::span<const Method> ownMethods = {};
};

/// For `quillmere-mcp-server`: the catalogue's names, and results as data.
extern const Dialect serverDialect;

}  // namespace quillmere
