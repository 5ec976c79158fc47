#include "HalvernApi/Platform/Alamofire/Request.hpp"

#include <algorithm>

#include "HalvernApi/Platform/Alamofire/AFError.hpp"
#include "HalvernApi/Platform/Alamofire/URL.hpp"
#include "HalvernApi/Platform/Statham/JsonText.hpp"

namespace HalvernApi::Alamofire {

using Foundation::NSError;
using Promissum::ErrorResponse;

Request::~Request() = default;

std::string Request::debugDescription() const {
  if (!request()) return "$ curl command could not be created";
  constexpr std::string_view harmless[] = {"Accept", "Accept-Encoding", "Accept-Language", "Content-Type",
                                           "User-Agent"};
  std::string text = "$ curl -v -X ";
  text += rawValue(request()->method);
  for (const auto& [name, value] : request()->headers) {
    const bool shown = std::any_of(std::begin(harmless), std::end(harmless),
                                   [&own = name](std::string_view known) { return equalIgnoringCase(known, own); });
    ((((text += " -H '") += name) += ": ") += shown ? value : "<elided>") += '\'';
  }
  if (request()->body) text += " --data '<elided>'";
  return text + " '" + printableUrl(request()->url) + '\'';
}

DataRequest::DataRequest(std::optional<URLRequest> request, Promissum::PromiseCore::Queue queue,
                         std::size_t maxJsonBytes)
    : Request(std::move(request)), answer_(new Answer(std::move(queue))), maxJsonBytes_(maxJsonBytes) {}

DataRequest& DataRequest::validate() {
  validated_ = true;
  return *this;
}

DataRequest& DataRequest::response(std::function<void(const DefaultDataResponse&)> handler) {
  answer_->whenSettled(Answer::Kind::handler, [self = shared_from_this(), validated = validated_.load(),
                                               handler = std::move(handler)](const Answer::Result& answer) {
    if (auto error = validated ? self->validationError(*answer) : std::nullopt)
      handler({answer->response, answer->data, std::move(error)});
    else
      handler(*answer);
  });
  return *this;
}

namespace {

// "Application/JSON; charset=utf-8" -> "Application/JSON"
std::string_view mediaType(std::string_view text) {
  text = text.substr(0, text.find(';'));
  const auto blank = [](char c) { return c == ' ' || c == '\t'; };
  while (!text.empty() && blank(text.front())) text.remove_prefix(1);
  while (!text.empty() && blank(text.back())) text.remove_suffix(1);
  return text;
}

bool acceptsOne(std::string_view accepted, std::string_view type) {
  if (accepted == "*/*") return true;
  if (accepted.ends_with("/*")) {
    const std::string_view family = accepted.substr(0, accepted.size() - 1);
    return equalIgnoringCase(type.substr(0, family.size()), family);
  }
  return equalIgnoringCase(accepted, type);
}

bool accepts(std::string_view accept, std::string_view contentType) {
  const std::string_view type = mediaType(contentType);
  for (;;) {
    const std::size_t comma = accept.find(',');
    if (acceptsOne(mediaType(accept.substr(0, comma)), type)) return true;
    if (comma == std::string_view::npos) return false;
    accept.remove_prefix(comma + 1);
  }
}

}  // namespace

std::optional<NSError> DataRequest::validationError(const DefaultDataResponse& answer) const {
  if (answer.error || !answer.response) return std::nullopt;
  const int status = answer.response->statusCode;
  if (status < 200 || status > 299)
    return makeError(AFError::responseValidationFailed, "The status " + std::to_string(status) + " is not acceptable.");
  const bool empty = !answer.data || answer.data->empty();
  const auto accept = request() ? request()->headers.find("Accept") : std::nullopt;
  if (empty || !accept || accepts(*accept, answer.response->contentType)) return std::nullopt;
  return makeError(AFError::responseValidationFailed, "The content type of the answer is not acceptable.");
}

std::optional<ErrorResponse> DataRequest::decode(const DefaultDataResponse& answer, bool validated,
                                                 const Decode& decode) const {
  const auto fail = [&](std::variant<NSError, Statham::JsonDecodeError> error) {
    return ErrorResponse{std::move(error), answer.response, answer.data};
  };
  if (answer.error) return fail(*answer.error);
  if (auto error = validated ? validationError(answer) : std::nullopt) return fail(*std::move(error));
  const auto notJson = [&](std::string_view why) {
    return fail(makeError(AFError::responseSerializationFailed, "The answer is not JSON: " + std::string(why) + "."));
  };
  try {
    const bool empty = !answer.data || answer.data->empty();
    const bool contentless = answer.response->statusCode == 204 || answer.response->statusCode == 205;
    if (empty && !contentless) return notJson("it is empty");
    const auto json = Statham::parseJson(empty ? "null" : Foundation::textOf(*answer.data), maxJsonBytes_);
    if (!json && json.error().isTooLarge)
      return fail(NSError{std::string(Foundation::NSURLErrorDomain), Foundation::NSURLErrorDataLengthExceedsMaximum,
                          "The values in the answer take too much memory or time"});
    if (!json) return notJson(json.error().description);
    if (auto error = decode(*json)) return fail(*std::move(error));
    return std::nullopt;
  } catch (...) {  // a decoder may be the application's; what it threw may hold what it read
    return fail(makeError(AFError::responseSerializationFailed, "The decoder of the answer threw an exception."));
  }
}

}  // namespace HalvernApi::Alamofire
