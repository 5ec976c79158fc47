#include <algorithm>
#include <boost/algorithm/string.hpp>
#include <cmath>
#include <map>

#include "Chart.hpp"
#include "Curves.hpp"
#include "Terminal.hpp"

namespace {

constexpr std::size_t columnsPerOctave = 8, decibelsPerRow = 5, margin = 6;
constexpr std::size_t columns = octaves * columnsPerOctave + 1, space = 8;
constexpr std::size_t lines = (loudest - softest) / decibelsPerRow + 1;
constexpr std::size_t width = margin + 1 + columns + space;

// The rows of an empty chart: the grid, and one more row or column on each side for points outside the scale.
std::vector<std::string> emptyRows() {
  const auto betweenColumn = static_cast<std::size_t>(std::lround(betweenOctaves * columnsPerOctave));
  std::vector<std::string> rows(lines + 2, std::string(1 + columns + space, ' '));
  for (std::size_t line = 0; line < lines; ++line) {
    const bool isLabelled = (softest + static_cast<int>(line * decibelsPerRow)) % 20 == 0;
    std::string& row = rows[line + 1];
    if (isLabelled) row.replace(1, columns, columns, '-');
    for (std::size_t octave = 0; octave <= octaves; ++octave) row[1 + octave * columnsPerOctave] = '|';
    for (std::size_t octave = firstBetween; octave < octaves; ++octave)
      row[1 + octave * columnsPerOctave + betweenColumn] = ':';
  }
  return rows;
}

// Puts the symbols of all points into the rows, and the numbers of their curves next to them if there is space. Returns
// true if there was space for all numbers.
bool putPoints(const std::vector<Curve>& curves, std::vector<std::string>& rows) {
  // key: row, column and symbol
  std::map<std::pair<std::size_t, std::size_t>, std::map<char, std::string>> cells;
  for (const Curve& curve : curves)
    for (const Point& point : curve.points) {
      const auto row = 1 + std::lround(point.y / decibelsPerRow) + point.down;
      const auto column = 1 + std::lround(point.x * columnsPerOctave) + point.across;
      auto& numbers = cells[{row, column}][point.isOutside() ? '!' : curve.ear.symbol];
      if (!point.isOutside()) numbers += (numbers.empty() ? "" : ",") + curve.number;
    }
  for (const auto& [place, numbers] : cells)
    rows[place.first][place.second] = numbers.size() > 1 ? '@' : numbers.begin()->first;
  bool allFit = true;
  for (const auto& [place, numbers] : cells) {
    std::string words;
    for (const auto& [symbol, its] : numbers)
      if (!its.empty()) words += (numbers.size() > 1 ? std::string(1, symbol) : "") + its;
    std::string& row = rows[place.first];
    const std::string room = row.substr(place.second + 1, words.size());
    const bool fits = room.size() == words.size() && room.find_first_not_of(" |:-") == std::string::npos;
    if (fits) row.replace(place.second + 1, words.size(), words);
    allFit = allFit && fits;
  }
  return allFit;
}

}  // namespace

std::string textChart(const std::vector<HalvernApi::Audiogram>& audiograms, std::size_t terminalWidth, bool coloured) {
  const std::vector<Curve> curves = curvesOf(audiograms);
  std::string chart = "Audiogram: hearing level (dB HL) by frequency (Hz)\n";
  if (terminalWidth < width) {
    chart += text("The chart takes ", width, " columns; the terminal has ", terminalWidth, ".\n");
    for (const Curve& curve : curves) chart += curve.words() + '\n';
    return chart;
  }

  const auto tinted = [&](const Ear& ear, const std::string& words) {
    return coloured ? ear.terminalColour + words + "\033[39m" : words;
  };
  std::vector<std::string> rows = emptyRows();
  const bool allFit = putPoints(curves, rows);
  const bool hasBoth = std::ranges::any_of(rows, [](const std::string& row) { return boost::contains(row, "@"); });
  chart += "    dB 125     250     500     1k      2k      4k      8k  Hz\n";
  for (std::size_t row = 0; row < rows.size(); ++row) {
    boost::trim_right(rows[row]);
    if (rows[row].empty()) continue;
    for (const Ear& ear : ears) {
      const std::string symbol(1, ear.symbol);
      boost::replace_all(rows[row], symbol, tinted(ear, symbol));
    }
    const int level = softest + (static_cast<int>(row) - 1) * static_cast<int>(decibelsPerRow);
    const std::string label = level % 10 == 0 && row > 0 && row <= lines ? text(level) : "";
    chart += std::string(margin - label.size(), ' ') + label + rows[row] + '\n';
  }
  for (const Curve& curve : curves)
    chart += text("       ", tinted(curve.ear, {curve.ear.symbol}), curve.number, "  ",
                  allFit ? curve.name : curve.words(), '\n');
  if (!allFit) chart += "       Not all numbers fit next to the symbols; all points are listed above.\n";
  if (hasBoth) chart += "       @  both ears\n";
  chart += text("       ", explanation, '\n');
  for (const Curve& curve : curves)
    for (const Point& point : curve.points)
      if (point.isOutside())
        chart += tinted(curve.ear, text("       !  outside the scale: ", curve.name, ": ", point.words)) + '\n';
  return chart;
}
