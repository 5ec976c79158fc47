#include <ostream>

#include "HalvernApi/AuthenticationResponse.hpp"
#include "HalvernApi/Extensions/Date+JsonGen.hpp"
#include "HalvernApi/Platform/Statham/RecordCodec.hpp"

namespace HalvernApi {
namespace {

using Statham::field;

constexpr Statham::RecordCodec authenticationCodec("AuthenticationResponse",  //
                                                   field("isSuccessful", &AuthenticationResponse::isSuccessful),
                                                   field("isEmailConfirmed", &AuthenticationResponse::isEmailConfirmed),
                                                   field("accessToken", &AuthenticationResponse::accessToken),
                                                   field("refreshToken", &AuthenticationResponse::refreshToken),
                                                   field("dateOfBirth", &AuthenticationResponse::dateOfBirth),
                                                   field("sex", &AuthenticationResponse::sex),
                                                   field("email", &AuthenticationResponse::email));

}  // namespace

Decoded<AuthenticationResponse> AuthenticationResponse::decodeJson(const JsonValue& json) {
  return authenticationCodec.decode(json);
}
JsonObject AuthenticationResponse::encodeJson() const { return authenticationCodec.encode(*this); }

std::ostream& operator<<(std::ostream& out, const AuthenticationResponse& response) {
  const auto word = [](bool flag) { return flag ? "true" : "false"; };
  return out << "AuthenticationResponse(isSuccessful: " << word(response.isSuccessful())
             << ", isEmailConfirmed: " << word(response.isEmailConfirmed()) << ", <elided>)";
}

}  // namespace HalvernApi
