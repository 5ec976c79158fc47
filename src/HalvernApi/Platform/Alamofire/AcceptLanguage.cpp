#include "HalvernApi/Platform/Alamofire/AcceptLanguage.hpp"

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "HalvernApi/Platform/Foundation/Ascii.hpp"

namespace HalvernApi::Alamofire {

std::string acceptLanguage() {
  constexpr std::size_t maxLanguages = 6;
  const auto setting = [](const char* name) -> std::string_view {
    const char* const value = std::getenv(name);
    return value != nullptr ? value : "";
  };
  std::string_view locale;
  for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"})
    if (locale.empty()) locale = setting(name);
  // Used only if the locale is set and is neither "C" nor "POSIX".
  std::string_view list = setting("LANGUAGE");
  if (list.empty() || locale.empty() || locale.starts_with("C.") || locale == "C" || locale == "POSIX") list = locale;
  std::vector<std::string> languages;
  while (!list.empty() && languages.size() < maxLanguages) {
    const std::string_view entry = list.substr(0, list.find(':'));
    list.remove_prefix(std::min(list.size(), entry.size() + 1));
    std::string language(entry.substr(0, entry.find_first_of(".@")));
    std::replace(language.begin(), language.end(), '_', '-');
    if (language.size() < 2 || language == "POSIX" || !Foundation::consistsOf(language, "-")) continue;
    if (std::find(languages.begin(), languages.end(), language) == languages.end()) languages.push_back(language);
  }
  if (languages.empty()) return "en";
  std::string text;
  for (std::size_t index = 0; index < languages.size(); ++index) {
    if (index > 0) text += ", ";
    text += languages[index];
    text += index == 0 ? ";q=1.0" : ";q=0." + std::to_string(10 - index);
  }
  return text;
}

}  // namespace HalvernApi::Alamofire
