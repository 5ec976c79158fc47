// The sandbox's accounts and how it judges requests, apart from sockets and scripts. It reads JSON with none of the
// library's codecs, so that a fault of theirs shows. For one thread at a time.
#pragma once

#include <boost/json.hpp>
#include <deque>
#include <map>

#include "HalvernApi/Testing/Sandbox.hpp"

namespace HalvernApi::Testing {

// Which endpoint the path of a request target is, if any.
std::optional<Operation> operationAt(std::string_view target);

// The names of the operations, as those of ApiService: "login", "register" and so on.
std::string_view name(Operation operation);
std::optional<Operation> operationNamed(std::string_view name);

// 32 hexadecimal digits that nobody can guess.
std::string randomToken();

struct SignIn {
  std::string appInstanceId;
  std::string accessToken;
  std::chrono::steady_clock::time_point expiry;
  std::optional<std::string> refreshToken;  // absent once it was used
};

struct Account {
  std::string email{};
  std::optional<std::string> password{};  // absent when only Facebook signs in
  bool confirmed = false;
  std::string confirmationToken{};
  boost::json::value dateOfBirth{}, sex{};
  std::size_t hearingAids = 0;
  boost::json::object lastDevices{};  // for each ear, the product that was registered last
  std::deque<SignIn> signIns{};       // the latest
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
  std::map<std::string, Account> accounts{};  // by e-mail address; never removed
  std::map<std::string, std::string> facebookTokens{
      {"sandbox-facebook-token", "facebook.user@example.com"}};  // to e-mail addresses
  std::vector<Mail> outbox{};
};

}  // namespace HalvernApi::Testing
