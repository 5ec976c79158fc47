#include <ostream>

#include "HalvernApi/ForgotPasswordResponse.hpp"
#include "HalvernApi/Platform/Statham/RecordCodec.hpp"

namespace HalvernApi {
namespace {

constexpr Statham::RecordCodec forgotPasswordCodec("ForgotPasswordResponse",
                                                   Statham::field("result", &ForgotPasswordResponse::result));

}  // namespace

Decoded<ForgotPasswordResponse> ForgotPasswordResponse::decodeJson(const JsonValue& json) {
  return forgotPasswordCodec.decode(json);
}
JsonObject ForgotPasswordResponse::encodeJson() const { return forgotPasswordCodec.encode(*this); }

std::ostream& operator<<(std::ostream& out, const ForgotPasswordResponse& response) {
  return out << "ForgotPasswordResponse(result: " << (response.result() ? "true)" : "false)");
}

}  // namespace HalvernApi
