// Small helpers that several of the tests share.
#pragma once

#include <array>

#include "HalvernApi/HalvernApi.hpp"

namespace HalvernApi::Tests {

inline Data bytes(std::string_view text) {
  const auto* const first = reinterpret_cast<const std::byte*>(text.data());
  return Data(first, first + text.size());
}

// A call to any URL; with a body that holds `text`, when there is one.
inline Promise<Unit, Error> call(SessionManager& session, const std::string& url, std::optional<std::string> text = {},
                                 HTTPMethod method = HTTPMethod::post) {
  const auto body = text ? std::optional(JsonObject{{"text", *text}}) : std::nullopt;
  return request<Unit>(session, url, method, body, JSONEncoding::default_(), "key", "token",
                       [](const JsonValue&) { return Unit(); });
}

// What a call comes to, in words: "success", "network NSURLErrorDomain -1004", "validationError too short".
template <class T>
std::string outcomeOf(const Promise<T, Error>& promise) {
  constexpr std::array cases = {"network", "unknownNSError", "validationError", "unknownJsonData", "notAuthorized"};
  const auto result = promise.get();
  if (result) return "success";
  std::string outcome = cases.at(static_cast<std::size_t>(result.error().code()));
  if (const NSError* error = result.error().platformError())
    outcome += ' ' + error->domain + ' ' + std::to_string(error->code);
  if (const std::string* message = result.error().validationMessage()) outcome += ' ' + *message;
  return outcome;
}

}  // namespace HalvernApi::Tests
