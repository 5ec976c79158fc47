#include <ostream>

#include "HalvernApi/Platform/Statham/RecordCodec.hpp"
#include "HalvernApi/ValidatedEmailResponse.hpp"

namespace HalvernApi {
namespace {

constexpr Statham::RecordCodec validatedEmailCodec("ValidatedEmailResponse",
                                                   Statham::field("result", &ValidatedEmailResponse::result));

}  // namespace

Decoded<ValidatedEmailResponse> ValidatedEmailResponse::decodeJson(const JsonValue& json) {
  return validatedEmailCodec.decode(json);
}
JsonObject ValidatedEmailResponse::encodeJson() const { return validatedEmailCodec.encode(*this); }

std::ostream& operator<<(std::ostream& out, const ValidatedEmailResponse& response) {
  return out << "ValidatedEmailResponse(result: " << (response.result() ? "true)" : "false)");
}

}  // namespace HalvernApi
