#pragma once

#include <functional>

#include "HalvernApi/Platform/Promissum/Responses.hpp"

namespace HalvernApi {

// The library's only failure type: what every operation fails with. Switch over `kind()`. A plain value: any thread.
class HALVERNAPI_EXPORT Error {
 public:
  // What went wrong.
  enum class Case {
    network,          // the exchange failed in the network or the operating system; holds the platform error
    unknownNSError,   // any other failure, such as another status or an answer that is not JSON; holds the platform
                      // error
    validationError,  // the service rejected the request (400) and said why; holds its words
    unknownJsonData,  // the answer's JSON is not the expected record
    notAuthorized,    // the service answered 401
  };

  // For fakes of a service, as are the next four. `error` is of NSURLErrorDomain or NSPOSIXErrorDomain.
  static Error network(NSError error);
  // `error` is of another domain.
  static Error unknownNSError(NSError error);
  // `message` is meant for the user.
  static Error validationError(std::string message);
  // Has nothing but its kind.
  static Error unknownJsonData();
  // Has nothing but its kind.
  static Error notAuthorized();

  // What `request` makes of a call that failed: `unknownJsonData` of a JsonDecodeError, else as the other constructor.
  explicit Error(ErrorResponse errorResponse);
  // By the first rule that applies: `network` for an error of NSURLErrorDomain or NSPOSIXErrorDomain, whatever the
  // status; `notAuthorized` for 401; `validationError` for 400 with a ServerErrorResponse that has a text, of which it
  // takes the first validation error or else the message; `unknownNSError` for anything else, no response included.
  Error(NSError error, const std::optional<HTTPURLResponse>& response, const std::optional<Data>& data);

  // For a `switch`, of which the compiler says when a case is missing.
  Case kind() const { return kind_; }
  // Of `network` and `unknownNSError`; null otherwise. Lives as long as this error.
  const NSError* platformError() const { return std::get_if<NSError>(&payload_); }
  // Of `validationError`: the service's words to the user, which may quote what the user typed. Null otherwise. Lives
  // as long as this error.
  const std::string* validationMessage() const { return std::get_if<std::string>(&payload_); }

  // The same for all errors of the library, for those who keep errors by domain and code.
  std::string_view domain() const { return "HalvernApi.Error"; }
  // The position of the case, from 0 for `network`.
  int code() const { return static_cast<int>(kind_); }

  // A sentence for a developer. Quotes the platform's words, but not the service's validation message, which may hold
  // what the user typed; no secrets.
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

// Gives `use` what `decode` hands on. False when there is no such value, or when `use` throws.
HALVERNAPI_EXPORT bool withJson(const Data& data, const std::function<void(const JsonValue&)>& use);

}  // namespace Detail
// \endcond

// What `decoder` makes of the JSON in `data`, such as an error body of the application's own endpoints; it maps a JSON
// value to an Expected<std::optional<T>, ...>. Absent when the data are not JSON with an object or an array at the top,
// or when the decoder fails or throws. Any thread.
template <class T, class F>
std::optional<T> decode(const Data& data, F decoder) {
  std::optional<T> result;
  const bool read = Detail::withJson(data, [&](const JsonValue& json) {
    if (auto decoded = decoder(json)) result = *std::move(decoded);
  });
  return read ? std::move(result) : std::nullopt;
}

// What `decoder`, which maps a JSON value to an Expected<T, ...>, makes of an error body that came with `statusCode`.
// Absent for any other status, without a body, and where `decode` of the body is. Any thread.
template <class T, class F>
std::optional<T> decode(const ErrorResponse& errorResponse, int statusCode, F decoder) {
  if (!errorResponse.response || errorResponse.response->statusCode != statusCode || !errorResponse.data)
    return std::nullopt;
  return decode<T>(*errorResponse.data, std::move(decoder));
}

}  // namespace HalvernApi
