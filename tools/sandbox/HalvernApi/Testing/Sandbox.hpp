#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace HalvernApi {
class Audiogram;
}

// For the tests of applications: an embedded sandbox of the service, and a mock of the client interface.
namespace HalvernApi::Testing {

// The ten endpoints, in the order of ApiService.
enum class Operation {
  login,
  relogin,
  register_,
  authenticate,
  resendValidationEmail,
  sendPasswordReset,
  checkIfValidated,
  registerDevice,
  profile,
  update,
};

// An answer that the sandbox sends.
struct Answer {
  int status = 200;                                             // any number with three digits
  std::string body{};                                           // sent unchanged; need not be JSON
  std::string contentType = "application/json; charset=utf-8";  // empty: the header is not sent
  std::vector<std::pair<std::string, std::string>>
      headers{};  // names and values, other than Content-Type and Content-Length
};

// Changes how the sandbox handles a call. The default values change nothing.
struct Script {
  // A value for `calls`: the script applies to all calls.
  static constexpr std::size_t always = static_cast<std::size_t>(-1);

  // The sandbox waits this long before it does anything else. If the sandbox is destroyed or the client closes the
  // connection meanwhile, the call has no effect.
  std::chrono::milliseconds delay{0};
  bool drop = false;  // closes the connection without an answer
  std::optional<Answer>
      answer{};           // sent instead of the usual answer; then the request is not checked and has no effect
  std::size_t calls = 1;  // how many calls the script applies to
  bool never = false;     // keeps the connection open without an answer, until the client closes it
};

// A request as it arrived.
struct SeenRequest {
  std::optional<Operation> operation;                        // absent if no operation has this path
  std::string method;                                        // "POST" for the ten operations
  std::string target;                                        // path and query
  std::vector<std::pair<std::string, std::string>> headers;  // names and values in the order in which they arrived
  std::string body;                                          // empty if there is none

  // The value of the first header with this name, ignoring case. Absent if there is none.
  std::optional<std::string> header(std::string_view name) const;
};

// A small version of the web service for tests and experiments: the ten endpoints on a loopback port, with accounts,
// tokens and hearing aids in memory. It checks requests as the real service does, and strictly: it refuses missing,
// unknown and wrong fields, and wrong headers. A script can make it misbehave. Every member may be called from any
// thread.
//
//     Sandbox server;
//     HttpApiService service(server.baseUrl(), {}, server.apiKey());
//     server.script(Operation::login, {.answer = Answer{.status = 503}});
//
// An account is created by registering or by `addAccount`. The Facebook token "sandbox-facebook-token" signs in
// facebook.user@example.com. The tokens of the last 32 sign-ins of an account are valid. A refresh token is valid once,
// and only with the app instance id with which it was issued.
class Sandbox {
 public:
  // All fields have defaults.
  struct Options {
    int port = 0;                                                           // 0 selects a free port
    std::string apiKey = "sandbox-key";                                     // a request with another key gets a 401
    std::chrono::milliseconds accessTokenLifetime = std::chrono::hours(1);  // an older token gets a 401
    // Called with each e-mail that the service sends to a user. Runs on the sandbox's thread before the answer is sent,
    // so it must not wait for a call to the sandbox.
    std::function<void(const std::string& email, const std::string& text)> mail{};
    // Serves a web page at `baseUrl()`, and requests for scripts below /sandbox/: see docs/sandbox.md. Then only the
    // last 1,000 requests are kept, with at most 64 KiB of each body.
    bool page = false;
    // Draws audiograms for the page, as SVG. Runs on the sandbox's thread: it must not call the sandbox.
    std::function<std::string(const std::vector<Audiogram>& audiograms)> chart{};
  };

  // Starts to serve on 127.0.0.1, with default options. Throws std::runtime_error if it cannot listen.
  Sandbox();
  // Starts to serve on 127.0.0.1. Throws std::runtime_error if it cannot listen, for example if the port is in use.
  explicit Sandbox(Options options);
  // Closes all connections, even if calls are not answered yet. Waits only for `Options::mail` or `Options::chart`, if
  // one of them is running.
  ~Sandbox();
  Sandbox(const Sandbox&) = delete;
  Sandbox& operator=(const Sandbox&) = delete;

  // The number of the port on 127.0.0.1.
  int port() const;
  // The base URL for HttpApiService: http, without a slash at the end.
  std::string baseUrl() const;
  // The API key for HttpApiService.
  const std::string& apiKey() const;

  // Adds an account with a confirmed e-mail address. Replaces an account with the same address.
  void addAccount(const std::string& email, const std::string& password);
  // Makes `token` a Facebook token that signs in to this account. The sign-in creates the account if it does not exist.
  void allowFacebookToken(const std::string& token, const std::string& email);
  // Does the same as the link in the confirmation e-mail. Returns false for an unknown address.
  bool confirmEmail(const std::string& email);
  // The link in the confirmation e-mail. Absent for an unknown address.
  std::optional<std::string> confirmationLink(const std::string& email) const;
  // Makes all access tokens that were issued so far expire. Refresh tokens stay valid.
  void expireAccessTokens();

  // Adds a script. The scripts of one operation apply in the order in which they were added, each to its number of
  // calls.
  void script(Operation operation, Script script);
  // Replaces all scripts of one operation. A script with `calls` 0 only removes them.
  void arm(Operation operation, Script script);
  // Removes all scripts and all requests that were seen. Accounts and tokens stay.
  void reset();
  // Restores the initial state: removes accounts, tokens and e-mails, too.
  void resetAll();

  // All requests in the order of arrival. A request is listed before it is answered.
  std::vector<SeenRequest> seen() const;
  // The requests of one operation.
  std::vector<SeenRequest> seen(Operation operation) const;
  // Blocks until at least `count` requests of that operation have been seen. Returns false on timeout.
  bool waitUntilSeen(Operation operation, std::size_t count, std::chrono::milliseconds timeout) const;
  // The number of connections since the start. A connection that only carried requests of the page does not count.
  std::size_t connections() const;

 private:
  struct Impl;
  const std::unique_ptr<Impl> impl_;
};

// The path of an operation's endpoint.
std::string_view path(Operation operation);

}  // namespace HalvernApi::Testing
