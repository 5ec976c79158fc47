// The file of audiograms that docs/audiogram-file.md describes. People write it, so it is read more strictly than an
// answer of the service. Free of state: any thread.
#pragma once

#include <HalvernApi/Audiogram.hpp>
#include <string>
#include <vector>

// The audiograms in the text of a file, or a line for each fault.
HalvernApi::Expected<std::vector<HalvernApi::Audiogram>, std::string> readAudiograms(std::string json);
