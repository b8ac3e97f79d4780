#include "bench/report.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <stdexcept>

namespace quillmere::bench {

namespace {

constexpr std::size_t floorAt = 0;
constexpr std::size_t serverAt = 1;
constexpr double noisySpread = 0.25;
constexpr double guardFactor = 2;

/// The value below which `part` of the sorted `values` lie, interpolated between two of them.
double quantile(const std::vector<double>& values, double part) {
  const double place = part * static_cast<double>(values.size() - 1);
  const auto below = static_cast<std::size_t>(place);
  const std::size_t above = std::min(below + 1, values.size() - 1);
  return std::lerp(values[below], values[above], place - static_cast<double>(below));
}

/// The spread of `values`: the distance between their quartiles as a fraction of their median.
double spread(std::vector<double> values) {
  std::ranges::sort(values);
  return (quantile(values, 0.75) - quantile(values, 0.25)) / quantile(values, 0.5);
}

/// How many columns `text` takes: all our characters take one.
std::size_t columns(std::string_view text) {
  std::size_t count = 0;
  for (const char byte : text) count += (static_cast<unsigned char>(byte) & 0xC0U) != 0x80U;
  return count;
}

std::string padded(const std::string& text, std::size_t width, bool toTheRight) {
  const std::string blanks(width - std::min(width, columns(text)), ' ');
  return toTheRight ? blanks + text : text + blanks;
}

/// Three significant digits.
std::string number(double value) {
  char text[32];
  const int decimals = value >= 100 ? 0 : value >= 10 ? 1 : 2;
  std::snprintf(text, sizeof text, "%.*f", decimals, value);
  return text;
}

constexpr std::size_t nameWidth = 39;
constexpr std::size_t unitWidth = 8;
constexpr std::size_t figureWidth = 9;
constexpr std::size_t barWidth = 13;

void printCells(const std::vector<std::string>& cells) {
  std::string line =
      "| " + padded(cells[0], nameWidth, false) + " | " + padded(cells[1], unitWidth, false) + " |";
  for (std::size_t i = 2; i + 1 < cells.size(); ++i) {
    line += " " + padded(cells[i], figureWidth, true) + " |";
  }
  line += " " + padded(cells.back(), barWidth, false) + " |";
  std::puts(line.c_str());
  std::fflush(stdout);
}

bool meetsBar(const Row& row) {
  const Bar& bar = row.scenario.bar;
  const double reached =
      bar.kind == Bar::Kind::ratio ? ratioToFloor(row, serverAt) : median(row.rounds[serverAt]);
  return row.scenario.details.moreIsBetter ? reached >= bar.value : reached <= bar.value;
}

std::string verdict(const Row& row) {
  const Bar& bar = row.scenario.bar;
  if (bar.kind == Bar::Kind::none) return "";
  return number(bar.value) + (bar.kind == Bar::Kind::ratio ? " ×" : "") +
         (meetsBar(row) ? "" : " MISSED");
}

}  // namespace

double median(std::vector<double> values) {
  std::ranges::sort(values);
  return quantile(values, 0.5);
}

double ratioToFloor(const Row& row, std::size_t contender) {
  std::vector<double> ratios;
  for (std::size_t round = 0; round < row.rounds[contender].size(); ++round) {
    ratios.push_back(row.rounds[contender][round] / row.rounds[floorAt][round]);
  }
  return median(std::move(ratios));
}

bool isNoisy(const Row& row) {
  return spread(row.rounds[floorAt]) > noisySpread;
}

void printHead(const std::vector<std::string>& rivals) {
  std::vector<std::string> cells = {"scenario", "unit"};
  for (std::size_t i = 0; i < rivals.size(); ++i) {
    cells.push_back(rivals[i]);
    if (i != floorAt) cells.emplace_back("× floor");
  }
  cells.insert(cells.end(), {"± floor", "bar"});
  printCells(cells);
  std::vector<std::string> rules = {std::string(nameWidth, '-'), std::string(unitWidth, '-')};
  rules.resize(cells.size() - 1, std::string(figureWidth - 1, '-') + ":");
  rules.emplace_back(barWidth, '-');
  printCells(rules);
}

void printRow(const Row& row) {
  std::vector<std::string> cells = {std::string(row.scenario.name), std::string(row.scenario.unit)};
  for (std::size_t i = 0; i < row.rounds.size(); ++i) {
    const bool tookPart = !row.rounds[i].empty();
    cells.push_back(tookPart ? number(median(row.rounds[i])) : "–");
    if (i != floorAt) cells.push_back(tookPart ? number(ratioToFloor(row, i)) : "–");
  }
  const std::string mark = isNoisy(row) ? "~" : "";
  cells.push_back(mark + number(100 * spread(row.rounds[floorAt])) + " %");
  cells.push_back(verdict(row));
  printCells(cells);
}

void printLegend(bool anyNoisy) {
  std::puts(
      "\nFigures are medians of all rounds, \"× floor\" the median of each round's ratio to the\n"
      "floor's figure in the same round, \"± floor\" how far the quartiles of the floor's rounds\n"
      "are apart. Compare ratios, and only within one run.");
  if (anyNoisy) {
    std::puts("TOO NOISY TO TELL in the rows marked ~: the floor itself varied by more than 25 %.");
  }
}

RecordedRatios readRatios(const std::string& path) {
  std::ifstream file(path);
  if (!file) throw std::runtime_error(path + " can't be read.");
  RecordedRatios ratios;
  double ratio = 0;
  for (std::string name; file >> ratio && std::getline(file >> std::ws, name);) {
    ratios[name] = ratio;
  }
  if (ratios.empty()) throw std::runtime_error(path + " records no ratio.");
  return ratios;
}

void writeRatios(const std::string& path, const std::vector<Row>& rows) {
  std::ofstream file(path);
  for (const Row& row : rows) {
    file << number(ratioToFloor(row, serverAt)) << ' ' << row.scenario.name << '\n';
  }
  if (!file.flush()) throw std::runtime_error(path + " can't be written.");
}

bool failsGuard(const Row& row, const RecordedRatios& recorded) {
  const auto found = recorded.find(row.scenario.name);
  if (found == recorded.end()) return false;
  // If the memory used is close to zero, for us or for the floor, the ratio can be anything.
  if (row.scenario.bar.kind == Bar::Kind::figure && meetsBar(row)) return false;
  const double ratio = ratioToFloor(row, serverAt);
  return row.scenario.details.moreIsBetter ? ratio * guardFactor < found->second
                                           : ratio > found->second * guardFactor;
}

}  // namespace quillmere::bench
