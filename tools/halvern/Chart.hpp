// Audiograms as audiologists draw them: frequency from 125 Hz to 8 kHz to the right, hearing level from -10 to 120 dB
// downwards, 20 dB as long as an octave. Red circles and solid lines for the right ear, blue crosses and broken lines
// for the left; numbered if an ear has several. A point outside the scale has no symbol there: a mark outside the grid
// says on which side it is, and has its value. Free of state: any thread.
#pragma once

#include <HalvernApi/Audiogram.hpp>
#include <string>
#include <vector>

// For a terminal, to the nearest 5 dB. In words if the terminal is too narrow.
std::string textChart(const std::vector<HalvernApi::Audiogram>& audiograms, std::size_t terminalWidth, bool coloured);
std::string svgChart(const std::vector<HalvernApi::Audiogram>& audiograms);
