#include "HalvernApi/Error.hpp"

#include <ostream>

#include "HalvernApi/ErrorCodeResponse.hpp"
#include "HalvernApi/Platform/Statham/JsonText.hpp"

namespace HalvernApi {
namespace {

// Returns the text in which the service explains a status of 400.
std::optional<std::string> rejectionMessage(const std::optional<Data>& data) try {
  if (!data) return std::nullopt;
  const auto body = decode<ServerErrorResponse>(*data, ServerErrorResponse::decodeJson);
  if (!body) return std::nullopt;
  if (const auto& errors = body->validationErrors(); errors && !errors->empty()) return errors->front();
  return body->message();
} catch (const std::bad_alloc&) {
  return std::nullopt;
}

}  // namespace

Error Error::network(NSError error) { return Error(Case::network, std::move(error)); }
Error Error::unknownNSError(NSError error) { return Error(Case::unknownNSError, std::move(error)); }
Error Error::validationError(std::string message) { return Error(Case::validationError, std::move(message)); }
Error Error::unknownJsonData() { return Error(Case::unknownJsonData, {}); }
Error Error::notAuthorized() { return Error(Case::notAuthorized, {}); }

Error::Error(ErrorResponse errorResponse)
    : Error(
          std::holds_alternative<JsonDecodeError>(errorResponse.error)
              ? unknownJsonData()
              : Error(std::get<NSError>(std::move(errorResponse.error)), errorResponse.response, errorResponse.data)) {}

Error::Error(NSError error, const std::optional<HTTPURLResponse>& response, const std::optional<Data>& data)
    : kind_(Case::unknownNSError) {
  if (error.domain == NSURLErrorDomain || error.domain == NSPOSIXErrorDomain) {
    kind_ = Case::network;
  } else if (response && response->statusCode == 401) {
    kind_ = Case::notAuthorized;
    return;
  } else if (response && response->statusCode == 400) {
    if (auto message = rejectionMessage(data)) {
      kind_ = Case::validationError;
      payload_ = *std::move(message);
      return;
    }
  }
  payload_ = std::move(error);
}

std::string Error::description() const {
  switch (kind_) {
    case Case::network: return "The exchange with the service failed: " + platformError()->description();
    case Case::unknownNSError: return "The call failed: " + platformError()->description();
    case Case::validationError: return "The service rejected the request as invalid; validationMessage() says why.";
    case Case::unknownJsonData: return "The service's answer is JSON, but not the record that was expected.";
    case Case::notAuthorized: return "The service does not accept the API key or the access token (401).";
  }
  return {};
}

std::ostream& operator<<(std::ostream& out, const Error& error) { return out << error.description(); }

bool Detail::withJson(const Data& data, const std::function<void(const JsonValue&)>& use) try {
  const auto json = Statham::parseJson(Foundation::textOf(data));
  if (!json || !json->is_structured()) return false;
  use(*json);
  return true;
} catch (...) {
  return false;
}

}  // namespace HalvernApi
