#pragma once

#include "HalvernApi/Audiogram.hpp"
#include "HalvernApi/AuthenticationResponse.hpp"
#include "HalvernApi/Error.hpp"
#include "HalvernApi/ForgotPasswordResponse.hpp"
#include "HalvernApi/Platform/Foundation/URLSessionConfiguration.hpp"
#include "HalvernApi/Platform/Promissum/Promise.hpp"
#include "HalvernApi/ProfileResponse.hpp"
#include "HalvernApi/ValidatedEmailResponse.hpp"

// The client of the account and hearing-aid web service. The namespace also contains the names from lower layers that
// applications use.
//
// Failures of calls are values. Only a lack of memory throws: std::bad_alloc. Records and errors are plain values. Two
// values are equal if all their fields are equal.
namespace HalvernApi {

namespace Alamofire {
class SessionManager;
}
using Alamofire::SessionManager;

// The ten operations of the account and hearing-aid web service. Applications use this interface, so that tests can
// replace the service with a fake.
//
// Operations may be called from any thread. Each operation sends one POST immediately and returns a promise of the
// decoded answer. Operations do not block and do not check their arguments. They copy the arguments before they return.
// Every failure is an Error of the promise.
//
// `appInstanceId` identifies this installation of the application: create it once, store it, and always pass the same
// text. `appInstanceName` is a name of the installation that people can read. `accessToken` is the access token of the
// last sign-in. If the service rejects it, the promise fails with `notAuthorized`.
class HALVERNAPI_EXPORT ApiService {
 public:
  virtual ~ApiService();

  // Signs in. With a wrong password, the promise fails with `validationError`.
  virtual Promise<AuthenticationResponse, Error> login(std::string_view email, std::string_view password,
                                                       std::string_view appInstanceId,
                                                       std::string_view appInstanceName) = 0;

  // Signs in again with the refresh token of an earlier sign-in. The new tokens replace both tokens of that sign-in.
  virtual Promise<AuthenticationResponse, Error> relogin(std::string_view refreshToken,
                                                         std::string_view appInstanceId) = 0;

  // Creates an account and signs in to it. The service compares the two passwords and sends an e-mail with a
  // confirmation link.
  virtual Promise<AuthenticationResponse, Error> register_(std::string_view email, std::string_view password,
                                                           std::string_view confirmPassword,
                                                           std::string_view appInstanceId,
                                                           std::string_view appInstanceName) = 0;

  // Signs in with the access token that the application received from Facebook's sign-in.
  virtual Promise<AuthenticationResponse, Error> authenticate(std::string_view withFacebookToken,
                                                              std::string_view appInstanceId,
                                                              std::string_view appInstanceName) = 0;

  // Asks the service to send the e-mail with the confirmation link again.
  virtual Promise<Unit, Error> resendValidationEmail(std::string_view accessToken) = 0;

  // Asks the service to send an e-mail with which the user can choose a new password. The user need not be signed in.
  virtual Promise<ForgotPasswordResponse, Error> sendPasswordReset(std::string_view email) = 0;

  // Whether the user's e-mail address has been confirmed.
  virtual Promise<ValidatedEmailResponse, Error> checkIfValidated(std::string_view accessToken) = 0;

  // Adds a hearing aid to the account. The versions and the tube are the texts that the hearing aid reports.
  // `orientation` is the ear on which the hearing aid is worn. `serialNumber` is absent if it is not known.
  virtual Promise<Unit, Error> registerDevice(std::string_view appInstanceId, std::string_view productName,
                                              std::optional<std::string_view> serialNumber,
                                              std::string_view hardwareVersion, std::string_view firmwareVersion,
                                              std::string_view tube, DeviceOrientation orientation,
                                              std::string_view accessToken) = 0;

  // Sends audiograms, unchanged and in the given order. The answer contains a fitting configuration for each ear.
  virtual Promise<ConfigurationResponse, Error> profile(const std::vector<Audiogram>& audiograms,
                                                        std::string_view accessToken) = 0;

  // Stores the user's sex and date of birth. `birthdate` is sent as local time in the device's time zone.
  virtual Promise<Unit, Error> update(Date birthdate, Sex sex, std::string_view accessToken) = 0;
};

// The service over HTTP. Create one object and keep it, so that its connections stay open. Calls are independent of
// each other: the object stores no tokens and no answers.
//
// Destroying the service cancels the calls in flight: they fail with `network` -999. The destructor does not wait for
// their handlers, which run later. Handlers must not use objects that are destroyed with the service.
class HALVERNAPI_EXPORT HttpApiService : public ApiService {
 public:
  // Every URL is `baseUrl` followed by a path that begins with a slash, so `baseUrl` must not end with a slash.
  // `apiToken` is sent with every request as the header "Api-Key". The constructor does not report errors and opens no
  // connection. If an argument is invalid, the calls fail.
  HttpApiService(std::string baseUrl, const URLSessionConfiguration& configuration, std::string apiToken);
  ~HttpApiService() override;
  HttpApiService(const HttpApiService&) = delete;
  HttpApiService& operator=(const HttpApiService&) = delete;

  const std::string& baseUrl() const { return baseUrl_; }
  // The session of all calls, for use with `request`. Destroying the service does not cancel its calls while a copy of
  // this pointer exists.
  const std::shared_ptr<SessionManager>& manager() const { return manager_; }
  const std::string& apiToken() const { return apiToken_; }

  Promise<AuthenticationResponse, Error> login(std::string_view email, std::string_view password,
                                               std::string_view appInstanceId,
                                               std::string_view appInstanceName) override;
  Promise<AuthenticationResponse, Error> relogin(std::string_view refreshToken,
                                                 std::string_view appInstanceId) override;
  Promise<AuthenticationResponse, Error> register_(std::string_view email, std::string_view password,
                                                   std::string_view confirmPassword, std::string_view appInstanceId,
                                                   std::string_view appInstanceName) override;
  Promise<AuthenticationResponse, Error> authenticate(std::string_view withFacebookToken,
                                                      std::string_view appInstanceId,
                                                      std::string_view appInstanceName) override;
  Promise<Unit, Error> resendValidationEmail(std::string_view accessToken) override;
  Promise<ForgotPasswordResponse, Error> sendPasswordReset(std::string_view email) override;
  Promise<ValidatedEmailResponse, Error> checkIfValidated(std::string_view accessToken) override;
  Promise<Unit, Error> registerDevice(std::string_view appInstanceId, std::string_view productName,
                                      std::optional<std::string_view> serialNumber, std::string_view hardwareVersion,
                                      std::string_view firmwareVersion, std::string_view tube,
                                      DeviceOrientation orientation, std::string_view accessToken) override;
  Promise<ConfigurationResponse, Error> profile(const std::vector<Audiogram>& audiograms,
                                                std::string_view accessToken) override;
  Promise<Unit, Error> update(Date birthdate, Sex sex, std::string_view accessToken) override;

 private:
  const std::string baseUrl_;
  const std::shared_ptr<SessionManager> manager_;
  const std::string apiToken_;
};

}  // namespace HalvernApi
