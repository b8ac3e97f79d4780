// How a program presents itself to its client. Everything else is the same in both programs.
#pragma once

#include <span>
#include <string_view>

#include "json/writer.hpp"
#include "results/guidance.hpp"
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

  /// The `result` of a tool call.
  JsonText (*showResult)(const GuidedResponse& guided);

  /// Methods that only this program has.
  std::span<const Method> ownMethods = {};
};

/// For `quillmere-mcp-server`: the catalogue's names, and results as data.
extern const Dialect serverDialect;

}  // namespace quillmere
