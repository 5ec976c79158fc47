// What the two charts of Chart.hpp share: the scale, the two ears, and audiograms as curves on the scale. Stateless:
// may be called from any thread.
#pragma once

#include <HalvernApi/Audiogram.hpp>
#include <array>
#include <string>
#include <vector>

constexpr double lowestHertz = 125;
constexpr int octaves = 6;
constexpr int softest = -10;
constexpr int loudest = 120;
constexpr int decibelsPerOctave = 20;
// The place of 750, 1500, 3000 and 6000 Hz after the octave below: log2(1.5).
constexpr double betweenOctaves = 0.58496250072115619;
constexpr int firstBetween = 2;

constexpr char explanation[] = "O and X: unmasked air-conduction thresholds";

struct Ear {
  char symbol;
  char initial;
  const char* name;
  const char* colour;
  const char* dashes;
  const char* terminalColour;
};
inline constexpr std::array ears{Ear{'O', 'R', "right ear", "#c8102e", "none", "\033[91m"},
                                 Ear{'X', 'L', "left ear", "#0b57d0", "7 5", "\033[94m"}};

// A point and its position, in octaves and decibels from the upper left corner of the scale. A point outside the scale
// has the nearest position on the edge; `across` and `down` are -1, 0 or 1 and say on which side it is.
struct Point {
  double x, y;
  int across, down;
  std::string words;  // decibels and hertz

  explicit Point(const HalvernApi::FrequencyVolumePair& pair);
  bool isOutside() const { return across != 0 || down != 0; }
};

struct Curve {
  const Ear& ear;
  std::string number;         // empty unless the ear has several audiograms
  std::string name;           // ear, number and serial number
  std::vector<Point> points;  // sorted by frequency

  std::string words() const;
};

// Returns the curves in the order of the audiograms.
std::vector<Curve> curvesOf(const std::vector<HalvernApi::Audiogram>& audiograms);
