// The library's only failure type, and small helpers for applications that want to read error bodies of their own.
// Plain values and free functions: any thread.
#pragma once

#include <functional>

#include "HalvernApi/Platform/Promissum/Responses.hpp"

namespace HalvernApi {

class HALVERNAPI_EXPORT Error {
 public:
  enum class Case {
    network,          // the exchange failed in the network or the operating system; holds the platform error
    unknownNSError,   // any other failure; holds the platform error
    validationError,  // the service rejected the request (400) and said why; holds its words
    unknownJsonData,  // the answer's JSON is not the expected record
    notAuthorized,    // the service answered 401
  };

  static Error network(NSError error);
  static Error unknownNSError(NSError error);
  static Error validationError(std::string message);
  static Error unknownJsonData();
  static Error notAuthorized();

  explicit Error(const ErrorResponse& errorResponse);
  // First rule that applies: a transport failure, no response, 401, a readable 400, anything else.
  Error(NSError error, const std::optional<HTTPURLResponse>& response, const std::optional<Data>& data);

  Case kind() const { return kind_; }
  const NSError* platformError() const { return std::get_if<NSError>(&payload_); }  // null where there is none
  const std::string* validationMessage() const { return std::get_if<std::string>(&payload_); }  // likewise

  std::string_view domain() const { return "HalvernApi.Error"; }
  int code() const { return static_cast<int>(kind_); }

  // A sentence for a developer. Quotes the platform's words, but not the service's validation message, which may hold
  // what the user typed; no secrets.
  std::string description() const;

  friend bool operator==(const Error&, const Error&) = default;
  friend HALVERNAPI_EXPORT std::ostream& operator<<(std::ostream&, const Error&);

 private:
  using Payload = std::variant<std::monostate, NSError, std::string>;
  Error(Case kind, Payload payload) : kind_(kind), payload_(std::move(payload)) {}

  Case kind_;
  Payload payload_;
};

namespace Detail {

// Gives `use` what `decode` hands on. False when there is no such value, or when `use` throws.
HALVERNAPI_EXPORT bool withJson(const Data& data, const std::function<void(const JsonValue&)>& use);

}  // namespace Detail

// What `decoder` makes of the JSON in `data`; it maps a JSON value to an Expected<std::optional<T>, ...>. Absent when
// the data are not JSON with an object or an array at the top, or when it fails.
template <class T, class F>
std::optional<T> decode(const Data& data, F decoder) {
  std::optional<T> result;
  const bool read = Detail::withJson(data, [&](const JsonValue& json) {
    if (auto decoded = decoder(json)) result = *std::move(decoded);
  });
  return read ? std::move(result) : std::nullopt;
}

// What `decoder`, which maps a JSON value to an Expected<T, ...>, makes of an error body that came with `statusCode`.
// Absent for any other status, without a body, and where `decode` of the body is.
template <class T, class F>
std::optional<T> decode(const ErrorResponse& errorResponse, int statusCode, F decoder) {
  if (!errorResponse.response || errorResponse.response->statusCode != statusCode || !errorResponse.data)
    return std::nullopt;
  return decode<T>(*errorResponse.data, std::move(decoder));
}

}  // namespace HalvernApi
