// The accounts of the sandbox and how it answers requests, without sockets and scripts. It does not read JSON with the
// library's codecs, so that tests can find faults in those. For one thread at a time.
#pragma once

#include <boost/json.hpp>
#include <deque>
#include <map>

#include "HalvernApi/Testing/Sandbox.hpp"

namespace HalvernApi::Testing {

// The operation of this request target. Absent if the target is none of the ten endpoints.
std::optional<Operation> operationAt(std::string_view target);

// The names of the operations: "login", "register" and so on, as in ApiService.
std::string_view name(Operation operation);
std::optional<Operation> operationNamed(std::string_view name);

// 32 random hexadecimal digits from std::random_device.
std::string randomToken();

struct SignIn {
  std::string appInstanceId;
  std::string accessToken;
  std::chrono::steady_clock::time_point expiry;
  std::optional<std::string> refreshToken;  // absent after it was used
};

struct Account {
  std::string email{};
  std::optional<std::string> password{};  // absent if the account was created by a Facebook sign-in
  bool confirmed = false;
  std::string confirmationToken{};
  boost::json::value dateOfBirth{}, sex{};
  std::size_t hearingAids = 0;
  boost::json::object lastDevices{};  // the last registered product for each ear
  std::deque<SignIn> signIns{};       // at most 32; the latest is the last
};

struct Mail {
  std::string email, text;
};

struct Service {
  Answer answer(const SeenRequest& request);
  Account* find(const std::string& email);
  Account& make(const std::string& email, const std::optional<std::string>& password, bool confirmed);
  Answer signIn(Account& account, const boost::json::object& body);
  void mailConfirmation(const Account& account);
  std::string link(const Account& account) const;

  std::string apiKey{};
  std::chrono::milliseconds accessTokenLifetime{};
  std::string baseUrl{};
  std::map<std::string, Account> accounts{};  // key: the e-mail address
  std::map<std::string, std::string> facebookTokens{
      {"sandbox-facebook-token", "facebook.user@example.com"}};  // key: the Facebook token; value: the e-mail address
  std::vector<Mail> outbox{};
};

}  // namespace HalvernApi::Testing
