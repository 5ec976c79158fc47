// Tests of an application's class that uses the service. The mock returns the answers that the test sets. The sandbox
// is a service, which the class calls over the network.
#include <gmock/gmock.h>

#include <HalvernApi/Testing/MockApiService.hpp>
#include <HalvernApi/Testing/Sandbox.hpp>

#include "Account.hpp"

using namespace HalvernApi;
using namespace HalvernApi::Testing;
using testing::NiceMock;
using testing::Return;

// [mock]
TEST(AccountTest, RenewsARefusedAccessToken) {
  const auto signIn = [](const std::string& accessToken, const std::string& refreshToken) {
    return AuthenticationResponse(true, true, accessToken, refreshToken, {}, {}, "ada@example.com");
  };
  NiceMock<MockApiService> service;
  EXPECT_CALL(service, checkIfValidated("stale"))
      .WillOnce(Return(MockApiService::Validated::rejected(Error::notAuthorized())));
  EXPECT_CALL(service, relogin("refresh", "app"))
      .WillOnce(Return(MockApiService::SignIn::resolved(signIn("fresh", "refresh 2"))));
  EXPECT_CALL(service, checkIfValidated("fresh"))
      .WillOnce(Return(MockApiService::Validated::resolved(ValidatedEmailResponse(true))));

  Account account(service, "app", signIn("stale", "refresh"));
  EXPECT_EQ(account.isConfirmed(), true);
}
// [mock]

class AccountAgainstSandboxTest : public testing::Test {
 protected:
  AccountAgainstSandboxTest() { server.addAccount("ada@example.com", "correct horse"); }
  AuthenticationResponse signIn() {
    return service.login("ada@example.com", "correct horse", "app", "Tests").get().value();
  }

  Sandbox server;
  HttpApiService service{server.baseUrl(), {}, server.apiKey()};
};

// [sandbox]
TEST_F(AccountAgainstSandboxTest, KeepsTheRefreshTokenThroughAnOutage) {
  Account account(service, "app", signIn());
  server.expireAccessTokens();
  server.script(Operation::relogin, {.answer = Answer{.status = 503}});

  const auto during = account.isConfirmed();
  ASSERT_FALSE(during);
  EXPECT_EQ(during.error().kind(), Error::Case::unknownNSError);
  EXPECT_EQ(account.isConfirmed(), true);
  EXPECT_EQ(server.seen(Operation::relogin).size(), 2U);
}
// [sandbox]

// In the time zone of this test, clocks were set forward at midnight of 2018-11-04, so this midnight does not exist.
TEST_F(AccountAgainstSandboxTest, StoresABirthDateThatReadsAsTheSameDay) {
  const auto date = dateOf("2018-11-04");
  ASSERT_TRUE(date);
  ASSERT_TRUE(Account(service, "app", signIn()).store(*date, Sex::female));
  const AuthenticationResponse stored = signIn();
  ASSERT_TRUE(stored.dateOfBirth());
  EXPECT_EQ(dayOf(*stored.dateOfBirth()), "2018-11-04");
  EXPECT_EQ(dateOf("2018-02-29"), std::nullopt);
}
