// Any bytes give the same messages and errors over every kind of input and in any pieces.
#include <string>
#include <vector>

#include "fuzz_support.hpp"
#include "harness/byte_source.hpp"
#include "protocol/framing.hpp"
#include "protocol/mcp_error.hpp"

namespace quillmere {
namespace {

using Outcomes = std::vector<std::string>;

Outcomes outcomesOf(ByteSource::Kind kind, std::string_view wire, std::size_t piece) {
  const ByteSource input(kind, wire, piece);
  ServerState state;
  StdinReader reader(input.number());
  Outcomes outcomes;
  for (;;) {
    try {
      const auto payload = readNextPayload(reader, state);
      if (!payload) break;
      outcomes.push_back("payload " + std::string(viewOf(*payload)));
    } catch (const MCPError& error) {
      outcomes.push_back("error " + error.message);
    }
  }
  outcomes.emplace_back(state.usesContentLengthFraming() ? "headers" : "lines");
  return outcomes;
}

}  // namespace
}  // namespace quillmere

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace quillmere;
  if (size == 0) return 0;
  const std::size_t piece = data[0] / 2U + 1U;
  const auto kind = data[0] % 2 == 0 ? ByteSource::Kind::socket : ByteSource::Kind::pipe;
  const std::string_view wire = textOf(data + 1, size - 1);
  demand(outcomesOf(kind, wire, piece) == outcomesOf(ByteSource::Kind::file, wire, wire.size()));
  return 0;
}
