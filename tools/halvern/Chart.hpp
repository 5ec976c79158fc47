// Audiograms as audiologists draw them: frequency from 125 Hz to 8 kHz to the right, each octave as wide as the next,
// hearing level from -10 to 120 dB downwards, circles for the right ear and crosses for the left. Points outside are
// drawn at the edge. Free of state: any thread.
#pragma once

#include <HalvernApi/Audiogram.hpp>
#include <string>
#include <vector>

std::string textChart(const std::vector<HalvernApi::Audiogram>& audiograms);
std::string svgChart(const std::vector<HalvernApi::Audiogram>& audiograms);
