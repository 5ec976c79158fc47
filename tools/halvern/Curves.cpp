#include "Curves.hpp"

#include <algorithm>
#include <cmath>
#include <map>

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
  std::map<DeviceOrientation, int> counts, totals;
  for (const Audiogram& audiogram : audiograms) ++totals[audiogram.orientation()];
  for (const Audiogram& audiogram : audiograms) {
    const DeviceOrientation side = audiogram.orientation();
    const Ear& ear = side == DeviceOrientation::right ? ears[0] : ears[1];
    const std::string number = totals[side] > 1 ? text(++counts[side]) : "";
    std::string name =
        text(ear.name, number.empty() ? "" : " ", number, ", serial number ", printable(audiogram.serialNumber()));
    std::replace(name.begin(), name.end(), '\n', '?');
    auto pairs = audiogram.values();
    std::ranges::stable_sort(pairs, {}, &HalvernApi::FrequencyVolumePair::frequency);
    curves.push_back({ear, number, std::move(name), {pairs.begin(), pairs.end()}});
  }
  return curves;
}
