// Audiograms as audiologists draw them: frequency from 125 Hz to 8 kHz to the right, each octave as long as 20 dB of
// hearing level, which goes from -10 to 120 dB downwards. Red circles and solid lines for the right ear, blue crosses
// and broken lines for the left; numbered where an ear has several. Points outside lie on the edge with an arrow and
// their number, unconnected, and are named below. Free of state: any thread.
#pragma once

#include <HalvernApi/Audiogram.hpp>
#include <string>
#include <vector>

// For a terminal, to the nearest 5 dB. Where `width` columns are too few, the points in words.
std::string textChart(const std::vector<HalvernApi::Audiogram>& audiograms, std::size_t width, bool coloured);
std::string svgChart(const std::vector<HalvernApi::Audiogram>& audiograms);
