#pragma once

#include "HalvernApi/Audiogram.hpp"
#include "HalvernApi/AuthenticationResponse.hpp"
#include "HalvernApi/Error.hpp"
#include "HalvernApi/ForgotPasswordResponse.hpp"
#include "HalvernApi/Platform/Foundation/URLSessionConfiguration.hpp"
#include "HalvernApi/Platform/Promissum/Promise.hpp"
#include "HalvernApi/ProfileResponse.hpp"
#include "HalvernApi/ValidatedEmailResponse.hpp"

// The client of the account and hearing-aid web service. Also holds the names of the layers below that applications
// use.
//
// Failures of calls are values, not exceptions. Records and errors are plain values. Two are equal if all their fields
// are equal.
namespace HalvernApi {

namespace Alamofire {
class SessionManager;
}
using Alamofire::SessionManager;

// The ten operations of the account and hearing-aid web service. Applications use this interface, so that tests can
// replace the service by a fake.
//
// Operations may be called from any thread. Each sends one POST immediately and returns a promise of the decoded
// answer. Operations do not block and do not check their arguments. Every failure is an Error of the promise. Arguments
// are copied before the call returns.
//
// `appInstanceId` identifies this installation of the application: create it once, store it, and always pass the same
// one. `appInstanceName` is a name for it that people can read. `accessToken` is the one from the last sign-in. If the
// service rejects it, the promise fails with `notAuthorized`.
class HALVERNAPI_EXPORT ApiService {
 public:
  virtual ~ApiService();

  // Signs in. A wrong password is a `validationError`.
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

  // Signs in with the access token that the application got from Facebook's sign-in.
  virtual Promise<AuthenticationResponse, Error> authenticate(std::string_view withFacebookToken,
                                                              std::string_view appInstanceId,
                                                              std::string_view appInstanceName) = 0;

  // Asks the service to send the e-mail with the confirmation link again.
  virtual Promise<Unit, Error> resendValidationEmail(std::string_view accessToken) = 0;

  // Asks the service to send an e-mail with which the user can choose a new password. The user need not be signed in.
  virtual Promise<ForgotPasswordResponse, Error> sendPasswordReset(std::string_view email) = 0;

  // Whether the user's e-mail address has been confirmed.
  virtual Promise<ValidatedEmailResponse, Error> checkIfValidated(std::string_view accessToken) = 0;

  // Adds a hearing aid to the account. The versions and the tube are sent as the hearing aid reports them.
  // `orientation` is the ear on which it is worn. The serial number is absent if it is not known.
  virtual Promise<Unit, Error> registerDevice(std::string_view appInstanceId, std::string_view productName,
                                              std::optional<std::string_view> serialNumber,
                                              std::string_view hardwareVersion, std::string_view firmwareVersion,
                                              std::string_view tube, DeviceOrientation orientation,
                                              std::string_view accessToken) = 0;

  // Sends audiograms, unchanged and in the given order, and gets a fitting configuration for each ear.
  virtual Promise<ConfigurationResponse, Error> profile(const std::vector<Audiogram>& audiograms,
                                                        std::string_view accessToken) = 0;

  // Stores the user's sex and date of birth. The date that is sent is `birthdate` in the device's time zone.
  virtual Promise<Unit, Error> update(Date birthdate, Sex sex, std::string_view accessToken) = 0;
};

// The service over HTTP. Create one object and keep it, because it keeps its connections open. It cannot be copied or
// moved. Calls are independent of each other: the object stores no tokens and no answers.
//
// Destroying the service cancels the calls in flight: they fail with `network` -999. The destructor does not wait for
// their handlers, which run later. Handlers must not use objects that are destroyed with the service.
class HALVERNAPI_EXPORT HttpApiService : public ApiService {
 public:
  // Every URL is `baseUrl` followed by a path that begins with a slash, so `baseUrl` must not end with one. `apiToken`
  // is sent with every request as the header "Api-Key". The constructor checks nothing and opens no connection: with an
  // invalid base URL or key, the calls fail.
  HttpApiService(std::string baseUrl, const URLSessionConfiguration& configuration, std::string apiToken);
  ~HttpApiService() override;
  HttpApiService(const HttpApiService&) = delete;
  HttpApiService& operator=(const HttpApiService&) = delete;

  const std::string& baseUrl() const { return baseUrl_; }
  // The session of all calls, for use with `request`. Calls in flight continue as long as a copy of this pointer
  // exists.
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
