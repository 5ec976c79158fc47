#include "AudiogramFile.hpp"

#include <HalvernApi/HalvernApi.hpp>
#include <boost/algorithm/string.hpp>
#include <boost/json.hpp>
#include <boost/range/algorithm_ext/push_back.hpp>
#include <map>
#include <set>

#include "Terminal.hpp"

using namespace HalvernApi;

namespace {

// The JSON value, or a message with the line of the first syntax error.
Expected<JsonValue, std::string> parse(const std::string& json) {
  boost::json::parser parser;
  boost::system::error_code error;
  const auto rest = json.begin() + static_cast<std::ptrdiff_t>(parser.write(json, error));
  if (!error) return parser.release();
  const auto line = 1 + std::count(json.begin(), rest, '\n');
  return Unexpected<std::string>(text("line ", line, ": not JSON: ", error.message()));
}

// Returns a line for each key that an object contains more than once, because the JSON parser silently uses the last
// one. `json` must be valid JSON.
std::vector<std::string> repeatedKeys(const std::string& json) {
  struct Level {
    bool isArray;
    std::size_t index = 0;
    std::string key{};
    std::set<std::string> keys{};
  };
  std::vector<Level> levels;
  std::vector<std::string> lines;
  std::string lastString;
  for (std::size_t at = 0; at < json.size(); ++at) {
    if (json[at] == '[' || json[at] == '{') levels.push_back({json[at] == '['});
    if (json[at] == ']' || json[at] == '}') levels.pop_back();
    if (json[at] == ',') ++levels.back().index;
    if (json[at] == '"') {
      const std::size_t begin = at;
      while (json[++at] != '"') at += json[at] == '\\' ? 1 : 0;
      lastString = json.substr(begin, at + 1 - begin);
    }
    if (json[at] != ':') continue;
    Level& object = levels.back();
    object.key = std::string(boost::json::parse(lastString).as_string());
    if (object.keys.insert(object.key).second) continue;
    std::string path;
    for (const Level& level : levels) path += level.isArray ? text('[', level.index, ']') : text('.', level.key);
    lines.push_back(path + ": more than once in its object");
  }
  return lines;
}

// Returns a line for each frequency for which an audiogram contains two different volumes.
std::vector<std::string> contradictions(const std::vector<Audiogram>& audiograms) {
  std::vector<std::string> lines;
  for (std::size_t which = 0; which < audiograms.size(); ++which) {
    const auto& values = audiograms[which].values();
    std::map<std::int64_t, std::size_t> places;  // the first index of each frequency
    for (std::size_t place = 0; place < values.size(); ++place) {
      const auto hertz = values[place].frequency();
      const std::size_t first = places.emplace(hertz, place).first->second;
      if (values[first].volume() != values[place].volume())
        lines.push_back(text('[', which, "].values[", place, "].frequency: ", hertz,
                             " Hz has another volume in values[", first, ']'));
    }
  }
  return lines;
}

}  // namespace

Expected<std::vector<Audiogram>, std::string> readAudiograms(std::string json) {
  if (json.starts_with("\xEF\xBB\xBF")) json.erase(0, 3);  // byte order mark
  const auto value = parse(json);
  if (!value) return Unexpected<std::string>(value.error());
  std::vector<std::string> faults = repeatedKeys(json);
  auto audiograms = JsonCodec<std::vector<Audiogram>>::decodeJson(*value);
  if (audiograms)
    boost::push_back(faults, contradictions(*audiograms));
  else
    faults.push_back(boost::replace_all_copy(audiograms.error().description(), "; ", "\n"));
  if (!faults.empty()) return Unexpected<std::string>(boost::join(faults, "\n"));
  return *std::move(audiograms);
}
