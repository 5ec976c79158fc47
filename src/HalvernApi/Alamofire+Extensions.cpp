#include "HalvernApi/Alamofire+Extensions.hpp"

#include <cstdio>

#include "HalvernApi/Environment.hpp"
#include "HalvernApi/Platform/Alamofire/URL.hpp"
#include "HalvernApi/Platform/Foundation/Posix.hpp"
#include "HalvernApi/Platform/Foundation/Thread.hpp"

namespace HalvernApi {
namespace {

// `Optional(https://...)`, or `nil` if the request has no URL.
std::string urlText(const DataRequest& request) {
  return request.request() ? "Optional(" + Alamofire::printableUrl(request.request()->url) + ')' : "nil";
}

// If there is a log hook, calls it with `line()`. Exceptions of both are ignored, because they must not change the call
// that is logged.
template <class Line>
void log(Line line) try {
  if (const auto hook = Environment::log) hook(line());
} catch (...) {
}

// Prints `text` as a line. Locks the stream, so that no output of other threads appears inside the line.
void printLine(std::string_view text) {
  std::optional<SigpipeBlock> block;
  if (!Foundation::Thread::isOwn()) block.emplace();  // the library's threads already block signals
  flockfile(stdout);
  [[maybe_unused]] const std::size_t written = std::fwrite(text.data(), 1, text.size(), stdout);
  [[maybe_unused]] const int ended = std::fputc('\n', stdout);
  funlockfile(stdout);
}

void logAnswer(const DataRequest& request, const DefaultDataResponse& answer) {
  if (answer.response) {
    log([&] { return "STATUS " + std::to_string(answer.response->statusCode) + ' ' + urlText(request); });
    // Bodies are printed on purpose, also without a log hook: see SECURITY.md.
    if (answer.data && Foundation::isUtf8(Foundation::textOf(*answer.data)))
      printLine(Foundation::textOf(*answer.data));
  } else if (answer.error) {
    log([&] { return "ERROR " + urlText(request) + ' ' + answer.error->description(); });
  } else {
    log([&] { return "EMPTY RESPONSE " + urlText(request); });
  }
}

}  // namespace

std::shared_ptr<DataRequest> Detail::startValidated(SessionManager& session, std::string_view url, HTTPMethod method,
                                                    const std::optional<JsonObject>& parameters,
                                                    const ParameterEncoding& encoding,
                                                    const std::optional<std::string>& apiKey,
                                                    const std::optional<std::string>& accessToken) {
  constexpr std::size_t reservedBytes = 256;  // for the three headers below and "Content-Type"
  HTTPHeaders headers(SessionManager::defaultHTTPHeaders(), reservedBytes);
  headers.set("Accept", "application/json");
  headers.set("Api-Key", apiKey);
  headers.set("Access-Token", accessToken);
  auto request = session.request(url, method, parameters, encoding, std::move(headers));
  log([&] { return std::string(rawValue(method)) + ' ' + urlText(*request); });
  log([&] { return request->debugDescription(); });
  // This handler is attached before `validate`, so that it receives every answer without a validation error.
  request->response([&request = *request](const DefaultDataResponse& answer) { logAnswer(request, answer); });
  request->validate();
  return request;
}

}  // namespace HalvernApi
