// Reads the file of audiograms that docs/audiogram-file.md describes. People write such files by hand, so the checks
// are stricter than those of the service's answers. Stateless: may be called from any thread.
#pragma once

#include <HalvernApi/Audiogram.hpp>
#include <string>
#include <vector>

// `json` is the content of the file. The error contains a line for each fault.
HalvernApi::Expected<std::vector<HalvernApi::Audiogram>, std::string> readAudiograms(std::string json);
