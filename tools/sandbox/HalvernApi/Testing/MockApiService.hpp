#pragma once

#include <gmock/gmock.h>

#include "HalvernApi/ApiService.hpp"

namespace HalvernApi::Testing {

// An ApiService for tests with GoogleMock: it has a mock method for each operation, with the same arguments. A call
// without an expectation fails as if the service could not be reached.
//
//     EXPECT_CALL(service, checkIfValidated("token"))
//         .WillOnce(Return(MockApiService::Validated::resolved(ValidatedEmailResponse(true))));
class MockApiService : public ApiService {
 public:
  // \cond
  MockApiService() {
    const auto outOfReach = [] { return OutOfReach(); };
    ON_CALL(*this, login).WillByDefault(outOfReach);
    ON_CALL(*this, relogin).WillByDefault(outOfReach);
    ON_CALL(*this, register_).WillByDefault(outOfReach);
    ON_CALL(*this, authenticate).WillByDefault(outOfReach);
    ON_CALL(*this, resendValidationEmail).WillByDefault(outOfReach);
    ON_CALL(*this, sendPasswordReset).WillByDefault(outOfReach);
    ON_CALL(*this, checkIfValidated).WillByDefault(outOfReach);
    ON_CALL(*this, registerDevice).WillByDefault(outOfReach);
    ON_CALL(*this, profile).WillByDefault(outOfReach);
    ON_CALL(*this, update).WillByDefault(outOfReach);
  }
  // \endcond

  // Returned by login, relogin, register_ and authenticate.
  using SignIn = Promise<AuthenticationResponse, Error>;
  // Returned by resendValidationEmail, registerDevice and update.
  using Done = Promise<Unit, Error>;
  // Returned by sendPasswordReset.
  using PasswordReset = Promise<ForgotPasswordResponse, Error>;
  // Returned by checkIfValidated.
  using Validated = Promise<ValidatedEmailResponse, Error>;
  // Returned by profile.
  using Configuration = Promise<ConfigurationResponse, Error>;
  // \cond
  using Text = std::string_view;

  MOCK_METHOD(SignIn, login, (Text email, Text password, Text appInstanceId, Text appInstanceName), (override));
  MOCK_METHOD(SignIn, relogin, (Text refreshToken, Text appInstanceId), (override));
  MOCK_METHOD(SignIn, register_,
              (Text email, Text password, Text confirmPassword, Text appInstanceId, Text appInstanceName), (override));
  MOCK_METHOD(SignIn, authenticate, (Text withFacebookToken, Text appInstanceId, Text appInstanceName), (override));
  MOCK_METHOD(Done, resendValidationEmail, (Text accessToken), (override));
  MOCK_METHOD(PasswordReset, sendPasswordReset, (Text email), (override));
  MOCK_METHOD(Validated, checkIfValidated, (Text accessToken), (override));
  MOCK_METHOD(Done, registerDevice,
              (Text appInstanceId, Text productName, std::optional<Text> serialNumber, Text hardwareVersion,
               Text firmwareVersion, Text tube, DeviceOrientation orientation, Text accessToken),
              (override));
  MOCK_METHOD(Configuration, profile, (const std::vector<Audiogram>& audiograms, Text accessToken), (override));
  MOCK_METHOD(Done, update, (Date birthdate, Sex sex, Text accessToken), (override));
  // \endcond

 private:
  struct OutOfReach {
    template <class T>
    operator Promise<T, Error>() const {
      return Promise<T, Error>::rejected(
          Error::network({std::string(NSURLErrorDomain), Foundation::NSURLErrorCannotConnectToHost,
                          "No answer was set for this call"}));
    }
  };
};

}  // namespace HalvernApi::Testing
