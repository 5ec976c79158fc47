#include <ostream>

#include "HalvernApi/ErrorCodeResponse.hpp"
#include "HalvernApi/Platform/Statham/RecordCodec.hpp"

namespace HalvernApi {
namespace {

using Statham::field;

constexpr Statham::RecordCodec serverErrorCodec("ServerErrorResponse",  //
                                                field("errorCode", &ServerErrorResponse::errorCode),
                                                field("message", &ServerErrorResponse::message),
                                                field("validationErrors", &ServerErrorResponse::validationErrors));

}  // namespace

Decoded<ServerErrorResponse> ServerErrorResponse::decodeJson(const JsonValue& json) {
  return serverErrorCodec.decode(json);
}
JsonObject ServerErrorResponse::encodeJson() const { return serverErrorCodec.encode(*this); }

std::ostream& operator<<(std::ostream& out, const ServerErrorResponse& response) {
  const std::size_t texts = response.validationErrors() ? response.validationErrors()->size() : 0;
  return out << "ServerErrorResponse(errorCode: " << response.errorCode() << ", validationErrors: " << texts << ')';
}

}  // namespace HalvernApi
