#include "HalvernApi/Platform/Alamofire/Request.hpp"

#include <algorithm>

#include "HalvernApi/Platform/Alamofire/AFError.hpp"
#include "HalvernApi/Platform/Alamofire/URL.hpp"
#include "HalvernApi/Platform/Foundation/Ascii.hpp"
#include "HalvernApi/Platform/Statham/JsonText.hpp"

namespace HalvernApi::Alamofire {

using Foundation::equalIgnoringCase;
using Foundation::Failure;
using Foundation::NSError;
using Promissum::ErrorResponse;

Request::~Request() = default;

namespace {

// Returns `text` in single quotes, for a shell.
std::string quoted(const std::string& text) {
  std::string quoted = "'";
  for (const char c : text) {
    if (c == '\'') quoted += "'\\'";
    quoted += c;
  }
  return quoted + '\'';
}

}  // namespace

std::string Request::debugDescription() const {
  if (!request()) return "$ curl command could not be created";
  constexpr std::string_view harmless[] = {"Accept", "Accept-Encoding", "Accept-Language", "Content-Type",
                                           "User-Agent"};
  std::string text = "$ curl -v -X ";
  text += rawValue(request()->method);
  for (const auto& [name, value] : request()->headers) {
    const bool isHarmless =
        std::any_of(std::begin(harmless), std::end(harmless),
                    [&own = name](std::string_view known) { return equalIgnoringCase(known, own); });
    text += " -H " + quoted(std::string(name) + ": " + std::string(isHarmless ? value : "<elided>"));
  }
  if (request()->body) text += " --data '<elided>'";
  return text + ' ' + quoted(printableUrl(request()->url));
}

DataRequest::DataRequest(std::optional<URLRequest> request, Promissum::PromiseCore::Queue queue,
                         std::size_t maxJsonBytes)
    : Request(std::move(request)), answer_(new Answer(std::move(queue))), maxJsonBytes_(maxJsonBytes) {
  constexpr std::size_t longestDomain = 20, longestWords = 100;
  reserved_.domain.reserve(longestDomain);
  reserved_.localizedDescription.reserve(longestWords);
}

DataRequest& DataRequest::validate() {
  validated_ = true;
  return *this;
}

DataRequest& DataRequest::response(std::function<void(const DefaultDataResponse&)> handler) {
  answer_->whenSettled(Answer::Kind::handler,
                       [self = shared_from_this(), validated = validated_.load(), handler = std::move(handler)](
                           const Answer::Result& answer) { self->show(*answer, validated, handler); });
  return *this;
}

void DataRequest::show(const RawResponse& answer, bool validated,
                       const std::function<void(const DefaultDataResponse&)>& handler) {
  auto error = errorOf(answer, validated);
  if (!error) return handler(answer);
  ErrorResponse failed = errorResponse(*std::move(error), answer);
  DefaultDataResponse response{std::move(failed.response), std::move(failed.data),
                               std::get<NSError>(std::move(failed.error))};
  handler(response);
  reserved_ = *std::move(response.error);
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

std::optional<NSError> DataRequest::errorOf(const RawResponse& answer, bool validated) {
  if (answer.error) return answer.error;
  if (answer.failure) return makeError(*answer.failure, answer.words);
  return validated ? validationError(answer) : std::nullopt;
}

std::optional<NSError> DataRequest::validationError(const RawResponse& answer) {
  const int status = answer.response->statusCode;
  if (status < 200 || status > 299) {
    NSError error = makeError({AFErrorDomain, AFError::responseValidationFailed, "The status "});
    error.localizedDescription += std::to_string(status);
    error.localizedDescription += " is not acceptable.";
    return error;
  }
  const bool empty = !answer.data || answer.data->empty();
  const auto accept = request() ? request()->headers.find("Accept") : std::nullopt;
  if (empty || !accept || accepts(*accept, answer.response->contentType)) return std::nullopt;
  return makeError(
      {AFErrorDomain, AFError::responseValidationFailed, "The content type of the answer is not acceptable."});
}

NSError DataRequest::makeError(const Failure& failure, std::string_view words) {
  NSError error = std::move(reserved_);
  error.domain = failure.domain;
  error.code = failure.code;
  error.localizedDescription = failure.words;
  try {
    if (!words.empty()) error.localizedDescription = words;
  } catch (const std::bad_alloc&) {
  }
  return error;
}

// Returns an error with the answer, or only with its status if memory runs out.
ErrorResponse DataRequest::errorResponse(std::variant<NSError, Statham::JsonDecodeError> error,
                                         const RawResponse& answer) {
  ErrorResponse response{std::move(error)};
  if (answer.response) response.response = {answer.response->statusCode};
  try {
    response.response = answer.response;
    response.data = answer.data;
  } catch (const std::bad_alloc&) {
  }
  return response;
}

ErrorResponse DataRequest::currentException() {
  try {
    throw;
  } catch (const std::bad_alloc&) {
    return {makeError(Foundation::outOfMemory)};
  } catch (...) {  // without the exception's text, which may quote data of the answer
    return {makeError(
        {AFErrorDomain, AFError::responseSerializationFailed, "The decoder of the answer threw an exception."})};
  }
}

DataRequest::Decoded<std::shared_ptr<const Statham::JsonValue>> DataRequest::json(const RawResponse& answer,
                                                                                  bool validated) {
  const auto fail = [&](NSError error) {
    return Foundation::Unexpected<ErrorResponse>(errorResponse(std::move(error), answer));
  };
  const auto notJson = [&](const std::string& why) {
    return fail(makeError({AFErrorDomain, AFError::responseSerializationFailed, "The answer is not JSON."},
                          "The answer is not JSON: " + why + "."));
  };
  if (auto error = errorOf(answer, validated)) return fail(*std::move(error));
  const bool empty = !answer.data || answer.data->empty();
  const bool contentless = answer.response->statusCode == 204 || answer.response->statusCode == 205;
  if (empty && !contentless) return notJson("it is empty");
  auto value = Statham::parseJson(empty ? "null" : Foundation::textOf(*answer.data), maxJsonBytes_);
  if (value) return std::make_shared<const Statham::JsonValue>(*std::move(value));
  if (!value.error().isTooLarge) return notJson(value.error().description);
  return fail(makeError(Foundation::urlFailure(Foundation::NSURLErrorDataLengthExceedsMaximum,
                                               "The values in the answer take too much memory or time.")));
}

}  // namespace HalvernApi::Alamofire
