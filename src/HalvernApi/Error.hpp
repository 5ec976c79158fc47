#pragma once

#include <functional>

#include "HalvernApi/Platform/Promissum/Responses.hpp"

namespace HalvernApi {

// The error type of all operations, for a `switch` over `kind()`. A plain value: any thread.
class HALVERNAPI_EXPORT Error {
 public:
  enum class Case {
    network,          // the exchange failed or was cancelled; has a platform error
    unknownNSError,   // any other failure, such as another status or an answer that is not JSON; has a platform error
    validationError,  // the service rejected the request (400) and explained why; has a validation message
    unknownJsonData,  // the answer's JSON is not the expected record
    notAuthorized,    // the service answered 401
  };

  // The five functions that create errors are for fakes of ApiService. `error` should have the domain NSURLErrorDomain
  // or NSPOSIXErrorDomain.
  static Error network(NSError error);
  // `error` should have a domain other than NSURLErrorDomain and NSPOSIXErrorDomain.
  static Error unknownNSError(NSError error);
  // `message` is a text for the user.
  static Error validationError(std::string message);
  static Error unknownJsonData();
  static Error notAuthorized();

  // Converts the error of a call. A JsonDecodeError becomes `unknownJsonData`. Any other error is converted by the
  // other constructor.
  explicit Error(ErrorResponse errorResponse);
  // Applies the first rule that fits:
  // - `network` for an error of NSURLErrorDomain or NSPOSIXErrorDomain, with any status;
  // - `notAuthorized` for the status 401;
  // - `validationError` for 400 with a ServerErrorResponse that has a text: its first validation error, or else its
  //   message;
  // - `unknownNSError` for anything else, also without a response.
  Error(NSError error, const std::optional<HTTPURLResponse>& response, const std::optional<Data>& data);

  Case kind() const { return kind_; }
  // Null unless the kind is `network` or `unknownNSError`. This object owns the result.
  const NSError* platformError() const { return std::get_if<NSError>(&payload_); }
  // The service's text for the user, which may quote the user's input. Null unless the kind is `validationError`. This
  // object owns the result.
  const std::string* validationMessage() const { return std::get_if<std::string>(&payload_); }

  // The same text for all errors, for applications that store an error as domain and code.
  std::string_view domain() const { return "HalvernApi.Error"; }
  // The position of `kind()` in Case: 0 for `network`.
  int code() const { return static_cast<int>(kind_); }

  // A sentence for a developer, without secrets. Contains the description of the platform error, but not the validation
  // message, which may quote the user's input.
  std::string description() const;

  friend bool operator==(const Error&, const Error&) = default;
  // Prints `description()`.
  friend HALVERNAPI_EXPORT std::ostream& operator<<(std::ostream&, const Error&);

 private:
  using Payload = std::variant<std::monostate, NSError, std::string>;
  Error(Case kind, Payload payload) : kind_(kind), payload_(std::move(payload)) {}

  Case kind_;
  Payload payload_;
};

// \cond
namespace Detail {

// Calls `use` with the object or array in `data`. Returns false if there is none, or if `use` throws.
HALVERNAPI_EXPORT bool withJson(const Data& data, const std::function<void(const JsonValue&)>& use);

}  // namespace Detail
// \endcond

// Decodes the JSON in `data`, for example the body of an error. `decoder` maps a JSON value to an Expected<T, ...> or
// an Expected<std::optional<T>, ...>. Absent if `data` is not a JSON object or array, or if the decoder fails or
// throws. Any thread.
template <class T, class F>
std::optional<T> decode(const Data& data, F decoder) {
  std::optional<T> result;
  const bool read = Detail::withJson(data, [&](const JsonValue& json) {
    if (auto decoded = decoder(json)) result = *std::move(decoded);
  });
  return read ? std::move(result) : std::nullopt;
}

// Decodes the body of an error with the status `statusCode`, like the function above. Absent if the status is
// different, if there is no body, or if the body is not decoded. Any thread.
template <class T, class F>
std::optional<T> decode(const ErrorResponse& errorResponse, int statusCode, F decoder) {
  if (!errorResponse.response || errorResponse.response->statusCode != statusCode || !errorResponse.data)
    return std::nullopt;
  return decode<T>(*errorResponse.data, std::move(decoder));
}

}  // namespace HalvernApi
