#include "HalvernApi/Platform/Alamofire/SessionManager.hpp"

#include <algorithm>
#include <array>
#include <cstdlib>

#include "HalvernApi/Platform/Alamofire/AFError.hpp"
#include "HalvernApi/Platform/Alamofire/CharacterSet.hpp"
#include "HalvernApi/Platform/Alamofire/Transport.hpp"
#include "HalvernApi/Platform/Alamofire/URL.hpp"
#include "HalvernApi/Platform/Foundation/CompletionQueue.hpp"

namespace HalvernApi::Alamofire {

using Foundation::CompletionQueue;
using Foundation::NSError;

namespace {

// "de_DE.UTF-8:en" -> "de-DE;q=1.0, en;q=0.9"; six languages at most, "C" and "POSIX" are none.
std::string acceptLanguage() {
  const auto setting = [](const char* name) -> std::string_view {
    const char* const value = std::getenv(name);
    return value != nullptr ? value : "";
  };
  std::string_view locale;
  for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"})
    if (locale.empty()) locale = setting(name);
  std::string_view list = setting("LANGUAGE");  // counts only where a locale is set at all
  if (list.empty() || locale.empty() || locale.starts_with("C.") || locale == "C" || locale == "POSIX") list = locale;
  static constexpr CharacterSet allowed("-");
  std::vector<std::string> languages;
  while (!list.empty() && languages.size() < 6) {
    const std::string_view entry = list.substr(0, list.find(':'));
    list.remove_prefix(std::min(list.size(), entry.size() + 1));
    std::string language(entry.substr(0, entry.find_first_of(".@")));
    std::replace(language.begin(), language.end(), '_', '-');
    if (language.size() < 2 || language == "POSIX" || !allowed.containsAll(language)) continue;
    if (std::find(languages.begin(), languages.end(), language) == languages.end()) languages.push_back(language);
  }
  if (languages.empty()) return "en";
  std::string text;
  for (std::size_t index = 0; index < languages.size(); ++index)
    text += (index == 0 ? "" : ", ") + languages[index] + ";q=" + (index == 0 ? "1." : "0.") +
            std::to_string((10 - index) % 10);
  return text;
}

HTTPHeaders headersFrom(const std::map<std::string, std::string>& map) {
  HTTPHeaders headers;
  for (const auto& [name, value] : map) headers.set(name, value);
  return headers;
}

// What would break the header block or the framing of the message, in words; empty when nothing does.
std::string_view headerFault(const HTTPHeaders& headers) {
  static constexpr CharacterSet token("!#$%&'*+-.^_`|~");
  const auto isControl = [](char c) { return (static_cast<unsigned char>(c) < 0x20 && c != '\t') || c == 0x7f; };
  constexpr std::array<std::string_view, 3> framing = {"Content-Length", "Transfer-Encoding", "Expect"};
  for (const auto& [name, value] : headers) {
    if (name.empty() || !token.containsAll(name)) return "A header's name is not a token.";
    if (std::any_of(value.begin(), value.end(), isControl)) return "A header's value holds a control character.";
    if (!Foundation::isUtf8(value)) return "A header's value is not UTF-8.";
    if (std::any_of(framing.begin(), framing.end(),
                    [&name = name](std::string_view known) { return equalIgnoringCase(known, name); }))
      return "A header that frames the message is the session's to set.";
  }
  return {};
}

}  // namespace

SessionManager::SessionManager(const Foundation::URLSessionConfiguration& configuration)
    : additionalHeaders_(headersFrom(configuration.httpAdditionalHeaders)),
      queue_(CompletionQueue::on(configuration.completionQueue)),
      transport_(std::make_unique<Transport>(configuration, queue_)) {}

SessionManager::~SessionManager() = default;

const HTTPHeaders& SessionManager::defaultHTTPHeaders() {
  static const HTTPHeaders headers = {{"Accept-Encoding", Transport::acceptEncoding()},
                                      {"Accept-Language", acceptLanguage()},
                                      {"User-Agent", Transport::userAgent()}};
  return headers;
}

std::shared_ptr<DataRequest> SessionManager::request(std::string_view url, HTTPMethod method,
                                                     const std::optional<Statham::JsonObject>& parameters,
                                                     const ParameterEncoding& encoding, HTTPHeaders headers) {
  std::optional<URLRequest> request;
  std::optional<NSError> error;
  if (isUrlText(url)) {
    request = URLRequest{std::string(url), method, std::move(headers)};
    error = encoding.encode(*request, parameters);
    for (const auto& [name, value] : additionalHeaders_)
      if (request->headers.find(name) == nullptr) request->headers.set(name, value);
    if (const std::string_view fault = headerFault(request->headers); !error && !fault.empty())
      error = makeError(AFError::invalidHeader, std::string(fault));
  } else {
    error = makeError(AFError::invalidURL, "The text is not a URL.");
  }
  return transport_->start(std::move(request), std::move(error));
}

}  // namespace HalvernApi::Alamofire
