#include <algorithm>
#include <boost/algorithm/string.hpp>
#include <map>

#include "Chart.hpp"
#include "Curves.hpp"
#include "Terminal.hpp"

namespace {

constexpr double octaveWidth = 85, decibelHeight = octaveWidth / decibelsPerOctave;
constexpr double gridWidth = octaves * octaveWidth, gridHeight = (loudest - softest) * decibelHeight;
constexpr double lineHeight = 24, smallLineHeight = 16;
// Pixels from the grid to the middle of a bar for both ears. Bars mark points outside the scale.
constexpr double barDistance = 30, barLength = 8;

// Replaces what the text of an XML document must not contain: "]]>", U+FFFE and U+FFFF.
std::string escaped(std::string words) {
  constexpr std::pair<const char*, const char*> replacements[] = {
      {"&", "&amp;"}, {"<", "&lt;"}, {">", "&gt;"}, {"\xEF\xBF\xBE", "?"}, {"\xEF\xBF\xBF", "?"}};
  for (const auto& [from, to] : replacements) boost::replace_all(words, from, to);
  return words;
}

// Whether the byte continues a character of several bytes in UTF-8.
bool continuesCharacter(char byte) { return (byte & 0xC0) == 0x80; }

// An upper limit of the width in pixels, for any sans-serif font of 14 pixels.
double widthOf(const std::string& words) {
  double width = 0;
  for (const char letter : words) {
    if (continuesCharacter(letter)) continue;
    const bool isWide =
        static_cast<unsigned char>(letter) >= 0x80 || std::string_view("mwMW@%").find(letter) != std::string_view::npos;
    if (isWide)
      width += 15;
    else
      width += std::isupper(letter) != 0 ? 11.5 : 9;
  }
  return width;
}

// Splits a text into lines of at most this width. A word is only broken if it is wider than a line.
std::vector<std::string> wrapped(const std::string& text, double width) {
  std::vector<std::string> lines(1), words;
  boost::split(words, text, boost::is_any_of(" "));
  for (const std::string& word : words) {
    std::string& line = lines.back();
    if (!line.empty() && widthOf(line) + widthOf(" ") + widthOf(word) > width)
      lines.emplace_back();
    else if (!line.empty())
      line += ' ';
    for (const char letter : word) {
      if (!continuesCharacter(letter) && widthOf(lines.back() + letter) > width) lines.emplace_back();
      lines.back() += letter;
    }
  }
  return lines;
}

// The label of a point outside the scale. It is drawn outside the grid.
struct Label {
  const Ear* ear;
  const Point* point;
  std::string words;
  double place;  // in pixels: from the upper edge of the grid for labels beside it, otherwise from the grid
};

// Moves the labels beside the grid so that none hides another. If there are too many, some are below the grid.
void spread(std::vector<Label>& labels) {
  std::ranges::stable_sort(labels, {}, &Label::place);
  double limit = gridHeight;
  for (auto label = labels.rbegin(); label != labels.rend(); ++label) {
    label->place = std::min(label->place, limit);
    limit = label->place - smallLineHeight;
  }
  limit = 0;
  for (Label& label : labels) {
    label.place = std::max(label.place, limit);
    limit = label.place + smallLineHeight;
  }
}

// Moves the labels above or below the grid away from it so that none hides another or its leader. A label is to the
// right of its leader, so the leader can pass the labels of all points that are farther to the right.
void stack(std::vector<Label>& labels) {
  std::ranges::stable_sort(labels, std::greater(), [](const Label& label) { return label.point->x; });
  for (auto label = labels.begin(); label != labels.end(); ++label)
    for (auto other = labels.begin(); other != label; ++other)
      if (other->point->x * octaveWidth < label->point->x * octaveWidth + widthOf(label->words))
        label->place = std::max(label->place, other->place + smallLineHeight);
}

// Where a point outside the scale is drawn: beside the grid, above it or below it.
struct Side {
  bool isBeside;
  int away;  // -1: to the left or upwards; 1: to the right or downwards
  auto operator<=>(const Side&) const = default;
};
constexpr Side above{false, -1}, below{false, 1}, onLeft{true, -1}, onRight{true, 1};

class Picture {
 public:
  explicit Picture(const std::vector<Curve>& curves) : curves_(curves) {
    placeLabels();
    drawGrid();
    drawLines();
    drawSymbols();
    drawOutside();
    drawLegend();
  }

  std::string document() const {
    std::string description;
    for (const Curve& curve : curves_) description += escaped(curve.words()) + ".\n";
    return text("<svg xmlns='http://www.w3.org/2000/svg' role='img' aria-labelledby='title desc' width='", width_,
                "' height='", y_, "' viewBox='0 0 ", width_, ' ', y_,
                "' font-family='sans-serif' font-size='14' fill='#222'>\n<title id='title'>Audiogram</title>\n"
                "<desc id='desc'>",
                description, "</desc>\n<style>.halo{paint-order:stroke;stroke:white;stroke-width:4px}</style>\n",
                "<rect width='100%' height='100%' fill='white'/>\n", svg_.str(), "</svg>\n");
  }

 private:
  double xOf(const Point& point) const { return left_ + point.x * octaveWidth; }
  double yOf(const Point& point) const { return top_ + point.y * decibelHeight; }

  // Places the labels of the points outside the scale. Places the grid so that there is room for the labels.
  void placeLabels() {
    for (const Curve& curve : curves_)
      for (const Point& point : curve.points) {
        if (!point.isOutside()) continue;
        const Side side{point.across != 0, point.across != 0 ? point.across : point.down};
        labels_[side].push_back({&curve.ear, &point, text(curve.ear.initial, curve.number, ": ", point.words),
                                 side.isBeside ? point.y * decibelHeight : barDistance + 6});
      }
    std::map<Side, double> room{{onRight, 90}};
    double lowest = gridHeight;
    for (auto& [side, labels] : labels_) {
      (side.isBeside ? spread : stack)(labels);
      for (const Label& label : labels) {
        const double end = widthOf(label.words) + 10;
        room[side] = std::max(room[side], side.isBeside ? barDistance + 32 + end : label.place + 12);
        if (side.isBeside)
          lowest = std::max(lowest, label.place);
        else
          room[onRight] = std::max(room[onRight], label.point->x * octaveWidth + end - gridWidth);
      }
    }
    left_ += room[onLeft];
    top_ += room[above];
    width_ = left_ + gridWidth + room[onRight];
    besideEnd_ = top_ + lowest;
    y_ = besideEnd_ + room[below];
  }

  void line(double x1, double y1, double x2, double y2, const std::string& style) {
    svg_ << "<path d='M" << x1 << ' ' << y1 << 'L' << x2 << ' ' << y2 << "' " << style << "/>\n";
  }

  void label(double x, double y, const std::string& style, const std::string& words) {
    svg_ << "<text x='" << x << "' y='" << y << "' " << style << '>' << escaped(words) << "</text>\n";
  }

  void symbol(double x, double y, const Ear& ear) {
    svg_ << "<g class='symbol' stroke='" << ear.colour << "' stroke-width='2.5' fill='none'>";
    if (ear.symbol == 'O')
      svg_ << "<circle cx='" << x << "' cy='" << y << "' r='7'/></g>\n";
    else
      svg_ << "<path d='M" << x << ' ' << y << "m-6 -6l12 12m0 -12l-12 12'/></g>\n";
  }

  // Draws half of a bar: the left half for the right ear, as if looking at the patient.
  void bar(double x, double y, const Ear& ear) {
    line(x, y, x + (ear.initial == 'R' ? -barLength : barLength), y,
         text("class='bar' stroke-width='4' stroke='", ear.colour, '\''));
  }

  void drawGrid() {
    const double right = left_ + gridWidth, bottom = top_ + gridHeight, middle = (left_ + right) / 2;
    const double frequencies = 85, levels = 65;
    label(middle, 30, "text-anchor='middle' font-size='20'", "Audiogram");
    label(middle, 60, "text-anchor='middle'", "Frequency (Hz)");
    label(0, 0, text("text-anchor='middle' transform='translate(24 ", (top_ + bottom) / 2, ") rotate(-90)'"),
          "Hearing level (dB HL)");
    for (int octave = 0; octave <= octaves; ++octave) {
      const double x = left_ + octave * octaveWidth, between = x + betweenOctaves * octaveWidth;
      const int hertz = static_cast<int>(lowestHertz) << octave;
      line(x, top_, x, bottom, "stroke='#999'");
      label(x, frequencies, "text-anchor='middle'", text(hertz));
      if (octave < firstBetween || octave == octaves) continue;
      line(between, top_, between, bottom, "stroke='#bbb' stroke-dasharray='3 4'");
      label(between, frequencies, "text-anchor='middle' font-size='11'", text(hertz * 3 / 2));
    }
    for (int level = softest; level <= loudest; level += 10) {
      const double y = top_ + (level - softest) * decibelHeight;
      line(left_, y, right, y, level == 0 ? "stroke='#333' stroke-width='2'" : "stroke='#ccc'");
      label(levels, y + 5, "text-anchor='end'", text(level));
    }
  }

  void drawLines() {
    for (const Curve& curve : curves_) {
      svg_ << "<path class='curve' fill='none' stroke='" << curve.ear.colour
           << "' stroke-width='1.5' stroke-dasharray='" << curve.ear.dashes << "' d='";
      char step = 'M';
      for (const Point& point : curve.points) {
        if (!point.isOutside()) svg_ << step << xOf(point) << ' ' << yOf(point);
        step = point.isOutside() ? 'M' : 'L';
      }
      svg_ << "'/>\n";
    }
  }

  // Draws the symbols, and next to each symbol the number of its curve. The number is on the left for the right ear, as
  // if looking at the patient, and on the right for the left ear. A number that would hide another moves away from the
  // symbol, at most twenty times.
  void drawSymbols() {
    constexpr double digit = 8, height = 12;
    std::vector<std::pair<double, double>> taken;  // the lower left corners of digits
    for (const Curve& curve : curves_)
      for (const Point& point : curve.points) {
        if (point.isOutside()) continue;
        const double x = xOf(point), y = yOf(point);
        symbol(x, y, curve.ear);
        if (curve.number.empty()) continue;
        const double size = digit * static_cast<double>(curve.number.size());
        const bool goesLeft = curve.ear.initial == 'R';
        double from = goesLeft ? x - 7 - size : x + 7;
        const auto hides = [&](const auto& other) {
          return std::abs(other.second - y) < height && other.first < from + size && other.first + digit > from;
        };
        for (int moves = 0; moves < 20 && std::ranges::any_of(taken, hides); ++moves)
          from += (goesLeft ? -1 : 1) * (digit + 1);
        for (std::size_t index = 0; index < curve.number.size(); ++index)
          taken.emplace_back(from + digit * static_cast<double>(index), y);
        label(from, y + 15, text("class='halo' font-size='11' fill='", curve.ear.colour, '\''), curve.number);
      }
  }

  // Draws bars outside the grid, at the level or the frequency of the point, and leaders from the bars to the labels.
  void drawOutside() {
    const std::string grey = "stroke='#999'";
    for (const auto& [side, labels] : labels_)
      for (const auto& [ear, point, words, place] : labels) {
        const double x = xOf(*point), y = yOf(*point);
        const std::string style = text("class='halo' fill='", ear->colour, '\'');
        if (side.isBeside) {
          const double middle = x + side.away * barDistance, end = middle + side.away * barLength;
          const double leaderEnd = end + side.away * 20;
          line(middle, y, end, y, grey);
          line(end, y, leaderEnd, top_ + place, grey);
          bar(middle, y, *ear);
          label(leaderEnd + side.away * 4, top_ + place + 5, style + (side == onLeft ? " text-anchor='end'" : ""),
                words);
        } else {
          const double middle = y + side.away * barDistance;
          const double base = side == above ? top_ - place : besideEnd_ + place + 12;
          line(x, middle + side.away * 2, x, side == above ? base - 10 : base, grey);
          bar(x, middle, *ear);
          label(x + 5, base, style, words);
        }
      }
  }

  void drawLegend() {
    y_ += 45;
    const auto write = [&](double x, const std::string& style, const std::string& words) {
      for (const std::string& part : wrapped(words, width_ - x - 10)) {
        label(x, y_, style, part);
        y_ += lineHeight;
      }
    };
    const double start = 75;
    for (const Curve& curve : curves_) {
      symbol(start, y_ - 5, curve.ear);
      label(start + 12, y_, text("font-size='11' fill='", curve.ear.colour, '\''), curve.number);
      write(start + 35, "", curve.name);
    }
    write(start - 7, "", explanation);
    for (const Curve& curve : curves_)
      for (const Point& point : curve.points)
        if (point.isOutside())
          write(start - 7, text("fill='", curve.ear.colour, '\''),
                text("Outside the scale: ", curve.name, ": ", point.words));
  }

  const std::vector<Curve>& curves_;
  std::map<Side, std::vector<Label>> labels_;
  double left_ = 90, top_ = 110, width_ = 0;  // the left and upper edge of the grid; the width of the picture
  double besideEnd_ = 0;                      // lower end of the grid and the labels beside it
  double y_ = 0;                              // lower end of what has been drawn
  std::ostringstream svg_;
};

}  // namespace

std::string svgChart(const std::vector<HalvernApi::Audiogram>& audiograms) {
  const std::vector<Curve> curves = curvesOf(audiograms);
  return Picture(curves).document();
}
