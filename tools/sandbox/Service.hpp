// What the sandbox knows and how it judges requests, apart from sockets and scripts. Any thread.
#pragma once

#include <boost/json.hpp>
#include <map>
#include <mutex>

#include "HalvernApi/Testing/Sandbox.hpp"

namespace HalvernApi::Testing {

// Which endpoint the path of a request target is, if any.
std::optional<Operation> operationAt(std::string_view target);

class Service {
 public:
  Service(Sandbox::Options options, std::string baseUrl);

  static std::string_view path(Operation operation);

  Answer answer(const SeenRequest& request);

  const std::string& baseUrl() const { return baseUrl_; }
  const std::string& apiKey() const { return options_.apiKey; }
  void addAccount(const std::string& email, const std::string& password);
  void allowFacebookToken(const std::string& token, const std::string& email);
  bool confirmEmail(const std::string& email);
  std::optional<std::string> confirmationLink(const std::string& email) const;
  void expireAccessTokens();

 private:
  struct Account;
  using Body = boost::json::object;
  // What a handler is given has been checked against its endpoint's fields.
  using Handler = Answer (Service::*)(const Body& body, Account* account);
  struct Endpoint;
  static const Endpoint& endpoint(Operation operation);

  struct Account {
    std::string email;
    std::optional<std::string> password;  // absent when only Facebook signs in
    bool confirmed = false;
    std::string confirmationToken;
    std::optional<std::string> dateOfBirth;
    std::optional<std::string> sex;
    std::size_t hearingAids = 0;
  };
  struct AccessToken {
    Account* account;
    std::chrono::steady_clock::time_point expiry;
  };

  Answer judge(Operation operation, const SeenRequest& request);
  Answer login(const Body& body, Account*);
  Answer relogin(const Body& body, Account*);
  Answer register_(const Body& body, Account*);
  Answer authenticate(const Body& body, Account*);
  Answer resendValidationEmail(const Body&, Account* account);
  Answer sendPasswordReset(const Body& body, Account*);
  Answer checkIfValidated(const Body&, Account* account);
  Answer registerDevice(const Body&, Account* account);
  Answer profile(const Body& body, Account*);
  Answer update(const Body& body, Account* account);
  Answer confirm(std::string_view token);

  Account* find(std::string_view email);
  Account& make(const std::string& email, std::optional<std::string> password, bool confirmed);
  Answer signIn(Account& account);
  void mailConfirmation(const Account& account);
  std::string link(const Account& account) const;

  const Sandbox::Options options_;
  const std::string baseUrl_;
  mutable std::mutex mutex_;
  std::map<std::string, Account, std::less<>> accounts_;  // by e-mail address; never removed
  std::map<std::string, AccessToken, std::less<>> accessTokens_;
  std::map<std::string, Account*, std::less<>> refreshTokens_;
  std::map<std::string, std::string, std::less<>> facebookTokens_;  // to e-mail addresses
  std::vector<std::pair<std::string, std::string>> outbox_;         // mailed once the lock is released
};

}  // namespace HalvernApi::Testing
