#pragma once

#include "HalvernApi/Audiogram.hpp"
#include "HalvernApi/AuthenticationResponse.hpp"
#include "HalvernApi/Error.hpp"
#include "HalvernApi/ForgotPasswordResponse.hpp"
#include "HalvernApi/Platform/Foundation/URLSessionConfiguration.hpp"
#include "HalvernApi/Platform/Promissum/Promise.hpp"
#include "HalvernApi/ProfileResponse.hpp"
#include "HalvernApi/ValidatedEmailResponse.hpp"

// The client of the account and hearing-aid web service, with the names of the layers below that applications use.
//
// Failures are values: nothing throws. Records and errors are plain values, and equal when all their fields are.
namespace HalvernApi {

namespace Alamofire {
class SessionManager;
}
using Alamofire::SessionManager;

// The ten operations of the account and hearing-aid web service: the interface to code against, and to replace in
// tests.
//
// Operations may be called from any thread. Each sends one POST at once and returns a promise of the decoded answer;
// none blocks, checks its arguments or fails itself. The promise fails with what went wrong; see Error. Arguments are
// copied before the call returns.
//
// `appInstanceId` identifies this installation of the application: make it once, keep it, and pass the same one always;
// `appInstanceName` is its name for people. `accessToken` is that of the last sign-in; where the service refuses it,
// the promise fails with `notAuthorized`.
class HALVERNAPI_EXPORT ApiService {
 public:
  virtual ~ApiService();

  // Signs in. A wrong password is a `validationError`.
  virtual Promise<AuthenticationResponse, Error> login(std::string_view email, std::string_view password,
                                                       std::string_view appInstanceId,
                                                       std::string_view appInstanceName) = 0;

  // Signs in again with the refresh token of an earlier sign-in; both its tokens are to be replaced by the new ones.
  virtual Promise<AuthenticationResponse, Error> relogin(std::string_view refreshToken,
                                                         std::string_view appInstanceId) = 0;

  // Makes an account and signs in to it. The service compares the two passwords, and mails a confirmation link.
  virtual Promise<AuthenticationResponse, Error> register_(std::string_view email, std::string_view password,
                                                           std::string_view confirmPassword,
                                                           std::string_view appInstanceId,
                                                           std::string_view appInstanceName) = 0;

  // Signs in with the access token that Facebook's sign-in gave to the application, which is the first argument.
  virtual Promise<AuthenticationResponse, Error> authenticate(std::string_view withFacebookToken,
                                                              std::string_view appInstanceId,
                                                              std::string_view appInstanceName) = 0;

  // Has the e-mail with the confirmation link sent again.
  virtual Promise<Unit, Error> resendValidationEmail(std::string_view accessToken) = 0;

  // Has an e-mail sent with which the user can choose a new password. Nobody needs to be signed in.
  virtual Promise<ForgotPasswordResponse, Error> sendPasswordReset(std::string_view email) = 0;

  // Whether the user's e-mail address has been confirmed.
  virtual Promise<ValidatedEmailResponse, Error> checkIfValidated(std::string_view accessToken) = 0;

  // Adds a hearing aid to the account: its versions and tube as it says them, and the ear that it is for. An absent
  // serial number is one that is not known.
  virtual Promise<Unit, Error> registerDevice(std::string_view appInstanceId, std::string_view productName,
                                              std::optional<std::string_view> serialNumber,
                                              std::string_view hardwareVersion, std::string_view firmwareVersion,
                                              std::string_view tube, DeviceOrientation orientation,
                                              std::string_view accessToken) = 0;

  // Sends audiograms, as they are and in their order, for a fitting configuration of each ear.
  virtual Promise<ConfigurationResponse, Error> profile(const std::vector<Audiogram>& audiograms,
                                                        std::string_view accessToken) = 0;

  // Stores the user's date of birth, as it reads in the device's time zone, and sex.
  virtual Promise<Unit, Error> update(Date birthdate, Sex sex, std::string_view accessToken) = 0;
};

// The service, over HTTP. Make one and keep it, as it keeps its connections; it is shared by reference. Calls are
// independent of one another, and nothing is kept between them: no token, no answer.
//
// Destroying the service cancels the calls that are in flight and does not wait for their handlers, which run
// afterwards, with `network` -999: they must not use what dies with the service.
class HALVERNAPI_EXPORT HttpApiService : public ApiService {
 public:
  // `baseUrl` is put in front of every path as it is, so it does not end in a slash. `apiToken` goes out with every
  // request as the header "Api-Key". Nothing is checked here, and nothing is connected before the first call: a base
  // URL or a key that is no good fails the calls.
  HttpApiService(std::string baseUrl, const URLSessionConfiguration& configuration, std::string apiToken);
  ~HttpApiService() override;
  HttpApiService(const HttpApiService&) = delete;
  HttpApiService& operator=(const HttpApiService&) = delete;

  // As it was given.
  const std::string& baseUrl() const { return baseUrl_; }
  // The session that carries the calls, for `request`. Whoever keeps it keeps the calls in flight alive.
  const std::shared_ptr<SessionManager>& manager() const { return manager_; }
  // The API key, as it was given.
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
