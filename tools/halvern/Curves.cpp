#include "Curves.hpp"

#include <algorithm>
#include <cmath>

#include "Terminal.hpp"

using HalvernApi::Audiogram;
using HalvernApi::DeviceOrientation;

Point::Point(const HalvernApi::FrequencyVolumePair& pair) {
  const double octave = std::log2(std::max(static_cast<double>(pair.frequency()), 1.0) / lowestHertz);
  x = std::clamp(octave, 0.0, double{octaves});
  y = std::clamp(pair.volume(), double{softest}, double{loudest}) - softest;
  across = (octave > x) - (octave < x);
  down = (pair.volume() > loudest) - (pair.volume() < softest);
  words = text(pair.volume(), " dB at ", pair.frequency(), " Hz");
}

std::string Curve::words() const {
  std::string all = name + ": ";
  for (const Point& point : points) all += (&point == &points.front() ? "" : ", ") + point.words;
  return all;
}

std::vector<Curve> curvesOf(const std::vector<Audiogram>& audiograms) {
  std::vector<Curve> curves;
  std::array<int, ears.size()> counts{}, totals{};
  const auto sideOf = [](const Audiogram& audiogram) {
    return static_cast<std::size_t>(audiogram.orientation() == DeviceOrientation::left);
  };
  for (const Audiogram& audiogram : audiograms) ++totals[sideOf(audiogram)];
  for (const Audiogram& audiogram : audiograms) {
    const std::size_t side = sideOf(audiogram);
    const std::string number = totals[side] > 1 ? text(++counts[side]) : "";
    std::string name = text(ears[side].name, number.empty() ? "" : " ", number, ", serial number ",
                            printable(audiogram.serialNumber()));
    std::replace(name.begin(), name.end(), '\n', '?');
    auto pairs = audiogram.values();
    std::stable_sort(pairs.begin(), pairs.end(),
                     [](const auto& left, const auto& right) { return left.frequency() < right.frequency(); });
    curves.push_back({ears[side], number, std::move(name), {pairs.begin(), pairs.end()}});
  }
  return curves;
}
