// The parts of a call that matter in a profile, each by itself.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <array>
#include <stdexcept>
#include <string>

#include "bench/contender.hpp"
#include "bench/payloads.hpp"
#include "json/document.hpp"
#include "platform/memory.hpp"
#include "platform/text.hpp"
#include "protocol/framing.hpp"
#include "results/tool_result.hpp"
#include "tools/arguments.hpp"
#include "tools/catalogue.hpp"

namespace quillmere::bench {

namespace {

void countBytes(benchmark::State& state, std::size_t each) {
  state.SetBytesProcessed(static_cast<std::int64_t>(each) * state.iterations());
}

void parse(benchmark::State& state, const std::string& text) {
  while (state.KeepRunning()) benchmark::DoNotOptimize(parseJson(text));
  countBytes(state, text.size());
}

/// What the server does with an app response: parses it, looks at it, and builds the result.
void answer(benchmark::State& state, const std::string& text) {
  while (state.KeepRunning()) {
    const auto payload = parseJson(text);
    benchmark::DoNotOptimize(toolResult(payload->object()));
  }
  countBytes(state, text.size());
}

void checkUtf8(benchmark::State& state, const std::string& text) {
  while (state.KeepRunning()) benchmark::DoNotOptimize(isUtf8(text));
  countBytes(state, text.size());
}

void validate(benchmark::State& state) {
  const auto arguments = parseJson(
      R"({"sessionId":"session-1","x":120,"y":340.5,"taskId":"t","taskName":"Open the notes"})");
  const Tool& tool = *findTool("quillmere.input.tap");
  while (state.KeepRunning()) validateSchemaArguments(tool, tool.name, arguments->object());
}

void normalise(benchmark::State& state) {
  const auto arguments = parseJson(R"({"sessionId":"session-1","key":" Page-Up "})");
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(normalizeToolArguments("quillmere.input.key", arguments->object()));
  }
}

/// The longest allowed argument, made of `character` only.
void countCharacters(benchmark::State& state, const std::string& character) {
  constexpr std::size_t longest = 16'384;
  std::string text;
  for (std::size_t i = 0; i < longest; ++i) text += character;
  while (state.KeepRunning()) benchmark::DoNotOptimize(hasMoreCharactersThan(text, longest));
  countBytes(state, text.size());
}

void readLine(benchmark::State& state) {
  std::array<int, 2> ends{};
  if (::pipe(ends.data()) != 0) throw std::runtime_error("No pipe is available.");
  const std::string line = callRequest(1, "small");
  StdinReader reader(ends[0]);
  while (state.KeepRunning()) {
    if (!writeAll(ends[1], {line})) throw std::runtime_error("The pipe can't be written to.");
    benchmark::DoNotOptimize(reader.readLine(maxFirstLineBytes));
  }
  ::close(ends[0]);
  ::close(ends[1]);
}

BENCHMARK_CAPTURE(parse, call, callRequest(1, "small"));
BENCHMARK_CAPTURE(parse, small_answer, smallPayload());
BENCHMARK_CAPTURE(parse, image_of_4_MB, imagePayload(4 << 20));
BENCHMARK_CAPTURE(parse, 20000_ui_nodes, uiPayload(20'000));
BENCHMARK_CAPTURE(answer, small, smallPayload());
BENCHMARK_CAPTURE(answer, 80_ui_nodes, uiPayload(80));
BENCHMARK_CAPTURE(checkUtf8, 20000_ui_nodes, uiPayload(20'000));
BENCHMARK(validate);
BENCHMARK(normalise);
BENCHMARK_CAPTURE(countCharacters, ascii, "x");
BENCHMARK_CAPTURE(countCharacters, emoji_of_four_code_points, "👩🏽‍🚀");
BENCHMARK(readLine);

}  // namespace

}  // namespace quillmere::bench

int main(int argumentCount, char** arguments) {
  // As the server does: this decides how much time a large app response spends in page faults.
  quillmere::tuneAllocator();
  benchmark::Initialize(&argumentCount, arguments);
  benchmark::RunSpecifiedBenchmarks();
}
