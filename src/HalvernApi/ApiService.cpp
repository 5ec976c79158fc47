#include "HalvernApi/ApiService.hpp"

#include "HalvernApi/Alamofire+Extensions.hpp"
#include "HalvernApi/Extensions/Date+JsonGen.hpp"
#include "HalvernApi/Platform/Statham/JsonCodec.hpp"

namespace HalvernApi {
namespace {

// For operations with an empty result: what the answer says plays no part.
Expected<Unit, JsonDecodeError> discard(const JsonValue&) { return Unit(); }

JsonValue text(std::string_view value) { return JsonCodec<std::string>::encodeJson(value); }

}  // namespace

ApiService::~ApiService() = default;

HttpApiService::HttpApiService(std::string baseUrl, const URLSessionConfiguration& configuration, std::string apiToken)
    : baseUrl_(std::move(baseUrl)),
      manager_(std::make_shared<SessionManager>(configuration)),
      apiToken_(std::move(apiToken)) {}

HttpApiService::~HttpApiService() = default;

template <class T>
Promise<T, Error> HttpApiService::post(std::string_view path, std::optional<JsonObject> body,
                                       std::optional<std::string_view> accessToken,
                                       Expected<T, JsonDecodeError> (*decoder)(const JsonValue&)) const {
  std::string url;
  url.reserve(baseUrl_.size() + path.size());
  url.append(baseUrl_).append(path);
  return request<T>(*manager_, url, HTTPMethod::post, std::move(body), JSONEncoding::default_(), apiToken_,
                    accessToken ? std::optional<std::string>(*accessToken) : std::nullopt, decoder, JsonUse::read);
}

Promise<AuthenticationResponse, Error> HttpApiService::login(std::string_view email, std::string_view password,
                                                             std::string_view appInstanceId,
                                                             std::string_view appInstanceName) {
  return post("/api/v1/account/login",
              JsonObject{{"email", text(email)},
                         {"password", text(password)},
                         {"appInstanceId", text(appInstanceId)},
                         {"appInstanceName", text(appInstanceName)}},
              std::nullopt, AuthenticationResponse::decodeJson);
}

Promise<AuthenticationResponse, Error> HttpApiService::relogin(std::string_view refreshToken,
                                                               std::string_view appInstanceId) {
  return post("/api/v1/account/re-login",
              JsonObject{{"refreshToken", text(refreshToken)}, {"appInstanceId", text(appInstanceId)}}, std::nullopt,
              AuthenticationResponse::decodeJson);
}

Promise<AuthenticationResponse, Error> HttpApiService::register_(std::string_view email, std::string_view password,
                                                                 std::string_view confirmPassword,
                                                                 std::string_view appInstanceId,
                                                                 std::string_view appInstanceName) {
  return post("/api/v1/account/register",
              JsonObject{{"email", text(email)},
                         {"password", text(password)},
                         {"confirmPassword", text(confirmPassword)},
                         {"appInstanceId", text(appInstanceId)},
                         {"appInstanceName", text(appInstanceName)}},
              std::nullopt, AuthenticationResponse::decodeJson);
}

Promise<AuthenticationResponse, Error> HttpApiService::authenticate(std::string_view withFacebookToken,
                                                                    std::string_view appInstanceId,
                                                                    std::string_view appInstanceName) {
  return post("/api/v1/account/authenticate-with-facebook",
              JsonObject{{"facebookToken", text(withFacebookToken)},
                         {"appInstanceId", text(appInstanceId)},
                         {"appInstanceName", text(appInstanceName)}},
              std::nullopt, AuthenticationResponse::decodeJson);
}

Promise<Unit, Error> HttpApiService::resendValidationEmail(std::string_view accessToken) {
  return post("/api/v1/account/resend-confirmation-email", std::nullopt, accessToken, discard);
}

Promise<ForgotPasswordResponse, Error> HttpApiService::sendPasswordReset(std::string_view email) {
  return post("/api/v1/account/forgot-password", JsonObject{{"email", text(email)}}, std::nullopt,
              ForgotPasswordResponse::decodeJson);
}

Promise<ValidatedEmailResponse, Error> HttpApiService::checkIfValidated(std::string_view accessToken) {
  return post("/api/v1/account/confirmed-email", std::nullopt, accessToken, ValidatedEmailResponse::decodeJson);
}

Promise<Unit, Error> HttpApiService::registerDevice(std::string_view appInstanceId, std::string_view productName,
                                                    std::optional<std::string_view> serialNumber,
                                                    std::string_view hardwareVersion, std::string_view firmwareVersion,
                                                    std::string_view tube, DeviceOrientation orientation,
                                                    std::string_view accessToken) {
  return post("/api/v1/account/register-hearing-aid",
              JsonObject{{"appInstanceId", text(appInstanceId)},
                         {"hardwareVersion", text(hardwareVersion)},
                         {"firmwareVersion", text(firmwareVersion)},
                         {"productName", text(productName)},
                         {"orientation", text(orientation.rawValue())},
                         {"tube", text(tube)},
                         {"serialNumber", serialNumber ? text(*serialNumber) : JsonValue(nullptr)}},
              accessToken, discard);
}

Promise<ConfigurationResponse, Error> HttpApiService::profile(const std::vector<Audiogram>& audiograms,
                                                              std::string_view accessToken) {
  return post("/api/v1/account/personalize-hearing-aids",
              JsonObject{{"aids", JsonCodec<std::vector<Audiogram>>::encodeJson(audiograms)}}, accessToken,
              ConfigurationResponse::decodeJson);
}

Promise<Unit, Error> HttpApiService::update(Date birthdate, Sex sex, std::string_view accessToken) {
  return post(
      "/api/v1/account/age-and-sex",
      JsonObject{{"dateOfBirth", text(JsonCodec<Date>::encodeJson(birthdate))}, {"sex", text(sex.encodeJson())}},
      accessToken, discard);
}

}  // namespace HalvernApi
