#include "Chart.hpp"

#include <algorithm>
#include <array>
#include <boost/algorithm/string.hpp>
#include <cmath>
#include <sstream>

#include "Terminal.hpp"

using HalvernApi::Audiogram;
using HalvernApi::DeviceOrientation;

namespace {

constexpr double lowestHertz = 125;
constexpr int octaves = 6;
constexpr int softest = -10;
constexpr int loudest = 120;
constexpr int decibelsPerOctave = 20;
// Where 750, 1500, 3000 and 6000 Hz lie between the octaves below and above: log2(1.5).
constexpr double betweenOctaves = 0.58496250072115619;
constexpr int firstBetween = 2;

struct Ear {
  DeviceOrientation orientation;
  char letter;
  const char* name;
  const char* colour;
  const char* dashes;
  const char* tinted;  // the letter in the ear's colour, for a terminal
};
constexpr std::array ears{Ear{DeviceOrientation::right, 'O', "right ear", "#c8102e", "none", "\033[91mO\033[39m"},
                          Ear{DeviceOrientation::left, 'X', "left ear", "#0b57d0", "7 5", "\033[94mX\033[39m"}};

template <class... Parts>
std::string text(const Parts&... parts) {
  std::ostringstream out;
  (out << ... << parts);
  return out.str();
}

// A point and where it lies, in octaves and in decibels from the upper left corner. What is outside lies on the edge,
// and `across` and `down` say on which side.
struct Point {
  double x, y;
  int across, down;
  std::string words;
  std::string number;

  explicit Point(const HalvernApi::FrequencyVolumePair& pair) {
    const double octave = std::log2(std::max(static_cast<double>(pair.frequency()), 1.0) / lowestHertz);
    x = std::clamp(octave, 0.0, double{octaves});
    y = std::clamp(pair.volume(), double{softest}, double{loudest}) - softest;
    across = (octave > x) - (octave < x);
    down = (pair.volume() > loudest) - (pair.volume() < softest);
    words = text(pair.volume(), " dB at ", pair.frequency(), " Hz");
    if (down != 0) number = text(pair.volume());
    if (across != 0) number += text(number.empty() ? "" : ",", pair.frequency());
  }
  bool isOutside() const { return across != 0 || down != 0; }
};

struct Curve {
  const Ear& ear;
  std::string number;  // empty unless the ear has several audiograms
  std::string name;
  std::vector<Point> points;

  std::string words() const {
    std::string all = name + ": ";
    for (const Point& point : points) all += (&point == &points.front() ? "" : ", ") + point.words;
    return all;
  }
};

// In the order of the audiograms; their points by frequency.
std::vector<Curve> curvesOf(const std::vector<Audiogram>& audiograms) {
  std::vector<Curve> curves;
  std::array<int, ears.size()> counts{}, totals{};
  for (const Audiogram& audiogram : audiograms) ++totals[audiogram.orientation() == DeviceOrientation::left];
  for (const Audiogram& audiogram : audiograms) {
    const std::size_t side = audiogram.orientation() == DeviceOrientation::left;
    const std::string number = totals[side] > 1 ? text(++counts[side]) : "";
    std::string name = text(ears[side].name, ", serial number ", printable(audiogram.serialNumber()));
    auto pairs = audiogram.values();
    std::stable_sort(pairs.begin(), pairs.end(),
                     [](const auto& left, const auto& right) { return left.frequency() < right.frequency(); });
    curves.push_back({ears[side], number, std::move(name), {pairs.begin(), pairs.end()}});
  }
  return curves;
}

std::vector<std::string> outsideOf(const std::vector<Curve>& curves) {
  std::vector<std::string> lines;
  for (const Curve& curve : curves)
    for (const Point& point : curve.points)
      if (point.isOutside()) lines.push_back(text("Outside the scale: ", curve.name, ": ", point.words));
  return lines;
}

}  // namespace

std::string textChart(const std::vector<Audiogram>& audiograms, std::size_t width, bool coloured) {
  constexpr std::size_t columnsPerOctave = 8, decibelsPerRow = 5, margin = 7;
  constexpr std::size_t columns = octaves * columnsPerOctave + 1, space = 8;
  const auto betweenColumn = static_cast<std::size_t>(std::lround(betweenOctaves * columnsPerOctave));
  const std::vector<Curve> curves = curvesOf(audiograms);
  std::string chart = "Audiogram: hearing level (dB HL) by frequency (Hz)\n";
  if (width < margin + columns + space) {
    chart += text("The picture takes ", margin + columns + space, " columns; here are ", width, ".\n");
    for (const Curve& curve : curves) chart += curve.words() + '\n';
    return chart;
  }

  std::vector<std::string> rows;
  for (int level = softest; level <= loudest; level += decibelsPerRow) {
    std::string row(columns + space, ' ');
    for (std::size_t column = 0; column < columns; ++column) {
      const double octave = static_cast<double>(column) / columnsPerOctave;
      const bool between = octave > firstBetween && column % columnsPerOctave == betweenColumn;
      row[column] = column % columnsPerOctave == 0 ? '|' : between ? ':' : level % 20 == 0 ? '-' : ' ';
    }
    rows.push_back(std::move(row));
  }
  // Puts the words where they hide no symbol.
  const auto put = [&](std::size_t row, std::size_t column, const std::string& words) {
    const std::string place = rows[row].substr(column, words.size());
    const bool fits = place.size() == words.size() && place.find_first_not_of(" |:-") == std::string::npos;
    if (fits) rows[row].replace(column, words.size(), words);
    return fits;
  };
  for (const bool symbols : {true, false})
    for (const Curve& curve : curves)
      for (const Point& point : curve.points) {
        const auto row = static_cast<std::size_t>(std::lround(point.y / decibelsPerRow));
        const auto column = static_cast<std::size_t>(std::lround(point.x * columnsPerOctave));
        char& cell = rows[row][column];
        const char letter = curve.ear.letter;
        const std::string arrow = point.down != 0 ? (point.down > 0 ? "v" : "^") : point.across > 0 ? ">" : "<";
        if (symbols)
          cell = cell == '@' || (cell != letter && (cell == 'O' || cell == 'X')) ? '@' : letter;
        else if (!point.isOutside() && cell != '@')
          put(row, column + 1, curve.number);
        else if (point.isOutside() && (cell == '@' || !put(row, column + 1, curve.number + arrow + point.number)))
          put(row, column + 1, arrow);
      }

  const auto tinted = [&](std::string words) {
    for (const Ear& ear : ears)
      if (coloured) boost::replace_all(words, std::string(1, ear.letter), ear.tinted);
    return words;
  };
  chart += "    dB 125     250     500     1k      2k      4k      8k  Hz\n";
  for (std::size_t row = 0; row < rows.size(); ++row) {
    const int level = softest + static_cast<int>(row * decibelsPerRow);
    const std::string label = level % 10 == 0 ? text(level) : "";
    chart +=
        std::string(margin - 1 - label.size(), ' ') + label + ' ' + tinted(boost::trim_right_copy(rows[row])) + '\n';
  }
  for (const Curve& curve : curves)
    chart += text("       ", tinted({curve.ear.letter}), curve.number, "  ", curve.name, '\n');
  chart += "       @  both ears\n";
  for (const std::string& line : outsideOf(curves)) chart += line + '\n';
  return chart;
}

std::string svgChart(const std::vector<Audiogram>& audiograms) {
  constexpr double left = 90, top = 110, octaveWidth = 85, decibelHeight = octaveWidth / decibelsPerOctave;
  constexpr double right = left + octaves * octaveWidth, bottom = top + (loudest - softest) * decibelHeight;
  const std::vector<Curve> curves = curvesOf(audiograms);
  const std::vector<std::string> outside = outsideOf(curves);
  const double height = bottom + 50 + 24 * static_cast<double>(curves.size() + outside.size());
  std::ostringstream svg;
  const auto escaped = [](const std::string& words) {
    return boost::replace_all_copy(boost::replace_all_copy(words, "&", "&amp;"), "<", "&lt;");
  };
  const auto line = [&](double x1, double y1, double x2, double y2, const char* style) {
    svg << "<path d='M" << x1 << ' ' << y1 << 'L' << x2 << ' ' << y2 << "' " << style << "/>\n";
  };
  const auto label = [&](double x, double y, const char* style, const std::string& words) {
    svg << "<text x='" << x << "' y='" << y << "' " << style << '>' << escaped(words) << "</text>\n";
  };
  const auto symbol = [&](double x, double y, const Curve& curve) {
    svg << "<g class='symbol' stroke='" << curve.ear.colour << "' stroke-width='2.5' fill='none'>";
    if (curve.ear.letter == 'O')
      svg << "<circle cx='" << x << "' cy='" << y << "' r='7'/></g>\n";
    else
      svg << "<path d='M" << x << ' ' << y << "m-6 -6l12 12m0 -12l-12 12'/></g>\n";
    if (!curve.number.empty()) label(x - 7, y + 15, "class='halo' font-size='11' text-anchor='end'", curve.number);
  };

  svg << "<svg xmlns='http://www.w3.org/2000/svg' role='img' aria-labelledby='title desc' width='" << right + 60
      << "' height='" << height << "' viewBox='0 0 " << right + 60 << ' ' << height
      << "' font-family='sans-serif' font-size='14' fill='#222'>\n<title id='title'>Audiogram</title>\n<desc "
         "id='desc'>";
  for (const Curve& curve : curves) svg << escaped(curve.words()) << ".\n";
  svg << "</desc>\n<style>.halo{paint-order:stroke;stroke:white;stroke-width:4px}</style>\n"
      << "<rect width='100%' height='100%' fill='white'/>\n";
  label((left + right) / 2, 30, "text-anchor='middle' font-size='20'", "Audiogram");
  label((left + right) / 2, 60, "text-anchor='middle'", "Frequency (Hz)");
  label(0, 0, text("text-anchor='middle' transform='translate(24 ", (top + bottom) / 2, ") rotate(-90)'").c_str(),
        "Hearing level (dB HL)");
  for (int octave = 0; octave <= octaves; ++octave) {
    const double x = left + octave * octaveWidth, between = x + betweenOctaves * octaveWidth;
    const int hertz = static_cast<int>(lowestHertz) << octave;
    line(x, top, x, bottom, "stroke='#999'");
    label(x, top - 25, "text-anchor='middle'", text(hertz));
    if (octave < firstBetween || octave == octaves) continue;
    line(between, top, between, bottom, "stroke='#bbb' stroke-dasharray='3 4'");
    label(between, top - 25, "text-anchor='middle' font-size='11'", text(hertz * 3 / 2));
  }
  for (int level = softest; level <= loudest; level += 10) {
    const double y = top + (level - softest) * decibelHeight;
    line(left, y, right, y, level == 0 ? "stroke='#333' stroke-width='2'" : "stroke='#ccc'");
    label(left - 25, y + 5, "text-anchor='end'", text(level));
  }

  for (const Curve& curve : curves) {
    svg << "<path class='curve' fill='none' stroke='" << curve.ear.colour << "' stroke-width='1.5' stroke-dasharray='"
        << curve.ear.dashes << "' d='";
    char step = 'M';
    for (const Point& point : curve.points) {
      if (!point.isOutside()) svg << step << left + point.x * octaveWidth << ' ' << top + point.y * decibelHeight;
      step = point.isOutside() ? 'M' : 'L';
    }
    svg << "'/>\n";
  }
  for (const Curve& curve : curves)
    for (const Point& point : curve.points) {
      const double x = left + point.x * octaveWidth, y = top + point.y * decibelHeight;
      symbol(x, y, curve);
      if (!point.isOutside()) continue;
      svg << "<path class='arrow' fill='none' stroke='" << curve.ear.colour
          << "' stroke-width='2' transform='translate(" << x << ' ' << y << ") rotate("
          << std::atan2(point.down, point.across) * 180 / std::acos(-1.0) << ")' d='M8 0h12m-5 -4l5 4l-5 4'/>\n";
      // The number stands inside the chart, and not where the other ear's would stand if their points coincide.
      const bool isRight = curve.ear.letter == 'O';
      const double above = point.down != 0 ? point.down * (isRight ? 16 : 31) : isRight ? 16 : -18;
      const char* const anchor = point.across > 0 ? "end" : point.across < 0 ? "start" : "middle";
      label(x - 14 * point.across, y + 5 - above, text("class='halo' text-anchor='", anchor, '\'').c_str(),
            point.number);
    }
  double y = bottom + 45;
  for (const Curve& curve : curves) {
    symbol(left, y - 5, curve);
    label(left + 25, y, "", curve.name);
    y += 24;
  }
  for (const std::string& words : outside) {
    label(left - 7, y, "", words);
    y += 24;
  }
  svg << "</svg>\n";
  return svg.str();
}
