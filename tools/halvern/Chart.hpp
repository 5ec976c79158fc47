// Draws audiograms as audiologists do: frequency from 125 Hz to 8 kHz to the right, hearing level from -10 to 120 dB
// downwards, 20 dB as long as an octave. Red circles and solid lines show the right ear, blue crosses and dashed lines
// the left ear; curves are numbered if an ear has several. A point outside the scale is shown by a mark outside the
// grid, on the side where the point would be, with its value. Stateless: may be called from any thread.
#pragma once

#include <HalvernApi/Audiogram.hpp>
#include <string>
#include <vector>

// The chart for a terminal. Levels are rounded to 5 dB. If the terminal is too narrow, returns the points as text.
std::string textChart(const std::vector<HalvernApi::Audiogram>& audiograms, std::size_t terminalWidth, bool coloured);
std::string svgChart(const std::vector<HalvernApi::Audiogram>& audiograms);
