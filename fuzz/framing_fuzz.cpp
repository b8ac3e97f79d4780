// Any bytes, over every kind of input and in any pieces, give the same payloads and errors.
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <vector>

#include "fuzz_support.hpp"
#include "protocol/framing.hpp"
#include "protocol/mcp_error.hpp"

namespace quillmere {
namespace {

using Outcomes = std::vector<std::string>;

Outcomes outcomesOf(const Descriptor& input) {
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

Outcomes overFile(std::string_view wire) {
  const Descriptor file(::memfd_create("wire", MFD_CLOEXEC));
  demand(writeAll(file.number(), {wire}));
  ::lseek(file.number(), 0, SEEK_SET);
  return outcomesOf(file);
}

Outcomes inPieces(std::string_view wire, std::size_t piece, bool overSocket) {
  std::array<int, 2> ends{};
  demand((overSocket ? ::socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()) : ::pipe(ends.data())) ==
         0);
  const Descriptor input(ends[0]);
  std::thread writer([wire, piece, output = Descriptor(ends[1])] {
    for (std::size_t at = 0; at < wire.size(); at += piece) {
      demand(writeAll(output.number(), {wire.substr(at, piece)}));
    }
  });
  Outcomes outcomes = outcomesOf(input);
  writer.join();
  return outcomes;
}

}  // namespace
}  // namespace quillmere

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace quillmere;
  if (size == 0) return 0;
  const std::size_t piece = data[0] / 2U + 1U;
  const bool overSocket = data[0] % 2 == 0;
  const std::string_view wire = textOf(data + 1, size - 1);
  const Outcomes whole = overFile(wire);
  demand(inPieces(wire, piece, overSocket) == whole);
  return 0;
}
