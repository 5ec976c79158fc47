#include "Chart.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <sstream>

using HalvernApi::Audiogram;
using HalvernApi::DeviceOrientation;

namespace {

constexpr double lowestHertz = 125;
constexpr int octaves = 6;
constexpr int softest = -10;
constexpr int loudest = 120;

struct Ear {
  DeviceOrientation orientation;
  char letter;
  const char* name;
  const char* colour;
};
constexpr std::array ears{Ear{DeviceOrientation::right, 'O', "right ear", "#c8102e"},
                          Ear{DeviceOrientation::left, 'X', "left ear", "#0b57d0"}};

const Ear& earOf(const Audiogram& audiogram) { return ears[audiogram.orientation() == DeviceOrientation::left]; }

// Where a point lies on the axes, in octaves and in decibels from the upper left corner.
struct Position {
  double x, y;
};

Position positionOf(const HalvernApi::FrequencyVolumePair& point) {
  const double hertz = std::max(static_cast<double>(point.frequency()), lowestHertz);
  return {std::min(std::log2(hertz / lowestHertz), double{octaves}),
          std::clamp(point.volume(), double{softest}, double{loudest}) - softest};
}

std::vector<Position> positionsOf(const Audiogram& audiogram) {
  std::vector<Position> positions;
  for (const auto& point : audiogram.values()) positions.push_back(positionOf(point));
  std::sort(positions.begin(), positions.end(), [](Position left, Position right) { return left.x < right.x; });
  return positions;
}

std::string hertzLabel(int octave) {
  const int hertz = static_cast<int>(lowestHertz) << octave;
  return hertz < 1000 ? std::to_string(hertz) : std::to_string(hertz / 1000) + 'k';
}

}  // namespace

std::string textChart(const std::vector<Audiogram>& audiograms) {
  constexpr int columnsPerOctave = 8;
  constexpr int decibelsPerRow = 5;
  constexpr std::size_t width = octaves * columnsPerOctave + 1;
  std::vector<std::string> rows;
  for (int level = softest; level <= loudest; level += decibelsPerRow) {
    std::string row(width, level % 20 == 0 ? '-' : ' ');
    for (std::size_t column = 0; column < width; column += columnsPerOctave) row[column] = level % 20 == 0 ? '+' : '|';
    rows.push_back(std::move(row));
  }
  for (const Audiogram& audiogram : audiograms)
    for (const Position position : positionsOf(audiogram)) {
      char& cell = rows[static_cast<std::size_t>(std::lround(position.y / decibelsPerRow))]
                       [static_cast<std::size_t>(std::lround(position.x * columnsPerOctave))];
      const char letter = earOf(audiogram).letter;
      const bool other = (cell == 'O' || cell == 'X' || cell == '@') && cell != letter;
      cell = other ? '@' : letter;
    }

  std::string text = "   dB";
  for (int octave = 0; octave <= octaves; ++octave) {
    text += ' ' + hertzLabel(octave);
    text.resize(5 + static_cast<std::size_t>((octave + 1) * columnsPerOctave), ' ');
  }
  text += "Hz\n";
  for (std::size_t row = 0; row < rows.size(); ++row) {
    const int level = softest + static_cast<int>(row) * decibelsPerRow;
    std::string label = level % 10 == 0 ? std::to_string(level) : "";
    label.insert(0, 5 - label.size(), ' ');
    text += label + ' ' + rows[row] + '\n';
  }
  return text + "      O right ear   X left ear   @ both\n";
}

std::string svgChart(const std::vector<Audiogram>& audiograms) {
  constexpr double left = 70, top = 60, octaveWidth = 85, decibelHeight = 3.5;
  constexpr double right = left + octaves * octaveWidth, bottom = top + (loudest - softest) * decibelHeight;
  std::ostringstream svg;
  const auto line = [&](double x1, double y1, double x2, double y2, const char* colour) {
    svg << "<line x1='" << x1 << "' y1='" << y1 << "' x2='" << x2 << "' y2='" << y2 << "' stroke='" << colour
        << "'/>\n";
  };
  const auto label = [&](double x, double y, const char* anchor, const std::string& words, const char* extra = "") {
    svg << "<text x='" << x << "' y='" << y << "' text-anchor='" << anchor << "'" << extra << ">" << words
        << "</text>\n";
  };
  const auto mark = [&](double x, double y, const Ear& ear) {
    svg << "<g fill='none' stroke='" << ear.colour << "' stroke-width='2.5'>";
    if (ear.letter == 'O')
      svg << "<circle cx='" << x << "' cy='" << y << "' r='7'/>";
    else
      svg << "<path d='M" << x - 6 << ' ' << y - 6 << "l12 12m0 -12l-12 12'/>";
    svg << "</g>\n";
  };

  svg << "<svg xmlns='http://www.w3.org/2000/svg' viewBox='0 0 " << right + 30 << ' ' << bottom + 50 << "' width='"
      << right + 30 << "' height='" << bottom + 50
      << "' font-family='sans-serif' font-size='13' fill='#333'>\n<title>Audiogram</title>\n"
      << "<rect width='100%' height='100%' fill='white'/>\n";
  for (int octave = 0; octave <= octaves; ++octave) {
    const double x = left + octave * octaveWidth;
    line(x, top, x, bottom, "#ccc");
    label(x, top - 10, "middle", std::to_string(static_cast<int>(lowestHertz) << octave));
  }
  for (int level = softest; level <= loudest; level += 10) {
    const double y = top + (level - softest) * decibelHeight;
    line(left, y, right, y, level == 0 ? "#666" : "#ccc");
    label(left - 10, y + 4, "end", std::to_string(level));
  }
  label((left + right) / 2, top - 34, "middle", "Frequency (Hz)");
  label(0, 0, "middle", "Hearing level (dB HL)",
        (" transform='translate(22 " + std::to_string((top + bottom) / 2) + ") rotate(-90)'").c_str());

  for (const Audiogram& audiogram : audiograms) {
    const Ear& ear = earOf(audiogram);
    std::vector<Position> points = positionsOf(audiogram);
    svg << "<polyline fill='none' stroke='" << ear.colour << "' stroke-width='1.5' points='";
    for (Position& point : points) {
      point = {left + point.x * octaveWidth, top + point.y * decibelHeight};
      svg << point.x << ',' << point.y << ' ';
    }
    svg << "'/>\n";
    for (const Position point : points) mark(point.x, point.y, ear);
  }
  for (std::size_t i = 0; i < ears.size(); ++i) {
    const double x = left + 10 + static_cast<double>(i) * 130, y = bottom + 26;
    mark(x, y, ears[i]);
    label(x + 15, y + 4, "start", ears[i].name);
  }
  svg << "</svg>\n";
  return svg.str();
}
