#include "server/command_line.hpp"

#include <unistd.h>

#include <algorithm>
#include <exception>
#include <string>
#include <string_view>

#include "json/document.hpp"
#include "json/writer.hpp"
#include "platform/standard_streams.hpp"
#include "server/doctor.hpp"

namespace quillmere {

namespace {

constexpr std::string_view helpText =
    "Quillmere stdio MCP sidecar for supervised Android phone control.\n"
    "\n"
    "Configure this executable as a stdio MCP server in the AI client. After initialize, use "
    "Quillmere MCP tools instead of treating this command as the user's phone task.\n"
    "\n"
    "Options:\n"
    "  --doctor  Print local sidecar/socket diagnostics as JSON and exit.\n"
    "  --help    Print this help and exit.";
static_assert(helpText.size() == 350);

void print(std::string_view text) {
  // If this fails, standard output is closed, so nobody would read an error either.
  static_cast<void>(writeAll(STDOUT_FILENO, {text, "\n"}));
}

int printDoctorReport() {
  try {
    // Written and parsed again: the indented writer takes a parsed value and sorts its keys.
    print(indentedJson(parseJson(doctorPayload().str())->root()));
    return 0;
  } catch (const std::exception&) {
    // For example, a path need not be UTF-8, and then JSON can't hold it. Half a report would be
    // worse than none.
    return 1;
  }
}

}  // namespace

std::optional<int> runCLI(std::span<const char* const> arguments) {
  const auto given = [&](std::string_view option) {
    return std::ranges::find(arguments, option) != arguments.end();
  };
  if (given("--help") || given("-h")) {
    print(helpText);
    return 0;
  }
  if (given("--doctor")) return printDoctorReport();
  return std::nullopt;
}

}  // namespace quillmere
