// What the figures say: the table, and the comparison with recorded ratios.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "bench/scenarios.hpp"

namespace quillmere::bench {

/// One scenario's figures, one per round, for the floor, the server and the other rivals in turn;
/// none for a rival that can't take part.
struct Row {
  const Scenario& scenario;
  std::vector<std::vector<double>> rounds;
};

/// The median of `values`, which must not be empty; for an even number the mean of the middle two.
[[nodiscard]] double median(std::vector<double> values);

/// The median over all rounds of a contender's figure divided by the floor's figure in the same
/// round: a slow phase of the machine slows both.
[[nodiscard]] double ratioToFloor(const Row& row, std::size_t contender);

/// Whether the floor's own rounds vary so much that the row says little.
[[nodiscard]] bool isNoisy(const Row& row);

/// Prints the head of the table, a row, and how to read it. Markdown, aligned for a terminal.
void printHead(const std::vector<std::string>& rivals);
void printRow(const Row& row);
void printLegend(bool anyNoisy);

/// The server's recorded ratios, by scenario. Each line of the file: ratio, blank, scenario.
using RecordedRatios = std::map<std::string, double, std::less<>>;

/// Throws `std::runtime_error` when the file can't be read.
[[nodiscard]] RecordedRatios readRatios(const std::string& path);
void writeRatios(const std::string& path, const std::vector<Row>& rows);

/// Whether the server is more than twice as bad as recorded. A scenario that was never recorded
/// passes, and so does a figure within its bar.
[[nodiscard]] bool failsGuard(const Row& row, const RecordedRatios& recorded);

}  // namespace quillmere::bench
