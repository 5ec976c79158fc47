#include "HalvernApi/ApiService.hpp"

#include <array>
#include <boost/container/small_vector.hpp>
#include <boost/json/monotonic_resource.hpp>

#include "HalvernApi/Alamofire+Extensions.hpp"
#include "HalvernApi/Extensions/Date+JsonGen.hpp"

namespace HalvernApi {
namespace {

using Body = std::initializer_list<std::pair<boost::json::string_view, boost::json::value_ref>>;

// The decoder of operations without a result. Accepts any JSON.
Expected<Unit, JsonDecodeError> discard(const JsonValue&) { return Unit(); }

template <class T>
Promise<T, Error> post(const HttpApiService& service, std::string_view path,
                       std::optional<std::string_view> accessToken, Decoded<T> (*decoder)(const JsonValue&),
                       std::optional<Body> body = std::nullopt) {
  // A usual URL and body fit into these buffers on the stack.
  const std::string& baseUrl = service.baseUrl();
  boost::container::small_vector<char, 256> url(baseUrl.begin(), baseUrl.end());
  url.insert(url.end(), path.begin(), path.end());
  std::array<unsigned char, 2048> buffer;
  boost::json::monotonic_resource memory(buffer.data(), buffer.size());
  std::optional<JsonObject> parameters;
  if (body) parameters.emplace(*body, &memory);
  return request<T>(*service.manager(), {url.data(), url.size()}, HTTPMethod::post, std::move(parameters),
                    JSONEncoding::default_(), service.apiToken(), std::optional<std::string>(accessToken), decoder);
}

}  // namespace

ApiService::~ApiService() = default;

HttpApiService::HttpApiService(std::string baseUrl, const URLSessionConfiguration& configuration, std::string apiToken)
    : baseUrl_(std::move(baseUrl)),
      manager_(std::make_shared<SessionManager>(configuration)),
      apiToken_(std::move(apiToken)) {}

HttpApiService::~HttpApiService() = default;

Promise<AuthenticationResponse, Error> HttpApiService::login(std::string_view email, std::string_view password,
                                                             std::string_view appInstanceId,
                                                             std::string_view appInstanceName) {
  return post(*this, "/api/v1/account/login", std::nullopt, AuthenticationResponse::decodeJson,
              Body{{"email", email},
                   {"password", password},
                   {"appInstanceId", appInstanceId},
                   {"appInstanceName", appInstanceName}});
}

Promise<AuthenticationResponse, Error> HttpApiService::relogin(std::string_view refreshToken,
                                                               std::string_view appInstanceId) {
  return post(*this, "/api/v1/account/re-login", std::nullopt, AuthenticationResponse::decodeJson,
              Body{{"refreshToken", refreshToken}, {"appInstanceId", appInstanceId}});
}

Promise<AuthenticationResponse, Error> HttpApiService::register_(std::string_view email, std::string_view password,
                                                                 std::string_view confirmPassword,
                                                                 std::string_view appInstanceId,
                                                                 std::string_view appInstanceName) {
  return post(*this, "/api/v1/account/register", std::nullopt, AuthenticationResponse::decodeJson,
              Body{{"email", email},
                   {"password", password},
                   {"confirmPassword", confirmPassword},
                   {"appInstanceId", appInstanceId},
                   {"appInstanceName", appInstanceName}});
}

Promise<AuthenticationResponse, Error> HttpApiService::authenticate(std::string_view withFacebookToken,
                                                                    std::string_view appInstanceId,
                                                                    std::string_view appInstanceName) {
  return post(*this, "/api/v1/account/authenticate-with-facebook", std::nullopt, AuthenticationResponse::decodeJson,
              Body{{"facebookToken", withFacebookToken},
                   {"appInstanceId", appInstanceId},
                   {"appInstanceName", appInstanceName}});
}

Promise<Unit, Error> HttpApiService::resendValidationEmail(std::string_view accessToken) {
  return post(*this, "/api/v1/account/resend-confirmation-email", accessToken, discard);
}

Promise<ForgotPasswordResponse, Error> HttpApiService::sendPasswordReset(std::string_view email) {
  return post(*this, "/api/v1/account/forgot-password", std::nullopt, ForgotPasswordResponse::decodeJson,
              Body{{"email", email}});
}

Promise<ValidatedEmailResponse, Error> HttpApiService::checkIfValidated(std::string_view accessToken) {
  return post(*this, "/api/v1/account/confirmed-email", accessToken, ValidatedEmailResponse::decodeJson);
}

Promise<Unit, Error> HttpApiService::registerDevice(std::string_view appInstanceId, std::string_view productName,
                                                    std::optional<std::string_view> serialNumber,
                                                    std::string_view hardwareVersion, std::string_view firmwareVersion,
                                                    std::string_view tube, DeviceOrientation orientation,
                                                    std::string_view accessToken) {
  return post(
      *this, "/api/v1/account/register-hearing-aid", accessToken, discard,
      Body{{"appInstanceId", appInstanceId},
           {"hardwareVersion", hardwareVersion},
           {"firmwareVersion", firmwareVersion},
           {"productName", productName},
           {"orientation", orientation.rawValue()},
           {"tube", tube},
           {"serialNumber", serialNumber ? JsonValue(boost::json::string_view(*serialNumber)) : JsonValue(nullptr)}});
}

Promise<ConfigurationResponse, Error> HttpApiService::profile(const std::vector<Audiogram>& audiograms,
                                                              std::string_view accessToken) {
  return post(*this, "/api/v1/account/personalize-hearing-aids", accessToken, ConfigurationResponse::decodeJson,
              Body{{"aids", JsonCodec<std::vector<Audiogram>>::encodeJson(audiograms)}});
}

Promise<Unit, Error> HttpApiService::update(Date birthdate, Sex sex, std::string_view accessToken) {
  return post(*this, "/api/v1/account/age-and-sex", accessToken, discard,
              Body{{"dateOfBirth", encodeDate(birthdate)}, {"sex", sex.rawValue()}});
}

}  // namespace HalvernApi
