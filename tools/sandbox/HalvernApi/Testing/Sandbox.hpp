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

// For the tests of applications: the service in miniature, and a mock of its interface.
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

// An answer as the sandbox sends it.
struct Answer {
  int status = 200;                                             // any number of three digits
  std::string body{};                                           // as it is, JSON or not
  std::string contentType = "application/json; charset=utf-8";  // empty means no such header
  std::vector<std::pair<std::string, std::string>> headers{};   // names and values, besides those that HTTP asks for
};

// What happens to a call instead of, or before, the usual. All of it defaulted is the usual.
struct Script {
  // For `calls`: from now on.
  static constexpr std::size_t always = static_cast<std::size_t>(-1);

  std::chrono::milliseconds delay{0};  // ends early when the sandbox is destroyed
  bool drop = false;                   // closes the connection without an answer
  std::optional<Answer> answer{};      // sent whatever the request holds, which then has no effect
  std::size_t calls = 1;               // how many calls it is for
  bool never = false;                  // keeps the connection open without an answer, until the client closes it
};

// A request as it arrived.
struct SeenRequest {
  std::optional<Operation> operation;                        // absent for everything but the ten endpoints
  std::string method;                                        // "POST", unless the request is not one of the library's
  std::string target;                                        // path and query
  std::vector<std::pair<std::string, std::string>> headers;  // names and values, in their order
  std::string body;                                          // empty when there is none

  // The value of the first header of that name, whatever its case.
  std::optional<std::string> header(std::string_view name) const;
};

// The web service in miniature, for tests and for trying things out: the ten endpoints on a loopback port, with
// accounts, tokens and hearing aids held in memory. It judges requests as the real service does, and strictly: what is
// more, less or other than the service expects is refused. A script can make it misbehave. Every member may be called
// from any thread.
//
//     Sandbox server;
//     HttpApiService service(server.baseUrl(), {}, server.apiKey());
//     server.script(Operation::login, {.answer = Answer{.status = 503}});
//
// Accounts are made by registering, or by `addAccount`. The Facebook token "sandbox-facebook-token" signs in
// facebook.user@example.com. The tokens of an account's last 32 sign-ins are good, a refresh token once and for the
// installation to which it was given.
class Sandbox {
 public:
  // What a sandbox is made with; all fields have defaults.
  struct Options {
    int port = 0;                                                           // 0 takes a free one
    std::string apiKey = "sandbox-key";                                     // requests with another get a 401
    std::chrono::milliseconds accessTokenLifetime = std::chrono::hours(1);  // after which one gets a 401
    // What the service mails to its users. Called on the sandbox's thread, before the answer goes out: it must not wait
    // for a call of the sandbox.
    std::function<void(const std::string& email, const std::string& text)> mail{};
    // Whether there is a page for people at `baseUrl()`, with requests below /sandbox/ for scripts: see
    // docs/sandbox.md. Then only the last 1,000 requests are kept, and 64 KiB of each body.
    bool page = false;
    // Draws audiograms for the page, as SVG. Called on the sandbox's thread: it must not call the sandbox.
    std::function<std::string(const std::vector<Audiogram>& audiograms)> chart{};
  };

  // Serves 127.0.0.1 as soon as it is made. Throws std::runtime_error when the port is taken.
  Sandbox();
  // As the other.
  explicit Sandbox(Options options);
  // Ends every connection, answered or not, without waiting for anybody but `Options::mail`, should that be running.
  ~Sandbox();
  Sandbox(const Sandbox&) = delete;
  Sandbox& operator=(const Sandbox&) = delete;

  // On 127.0.0.1.
  int port() const;
  // For HttpApiService: http, and without a slash at the end.
  std::string baseUrl() const;
  // For HttpApiService.
  const std::string& apiKey() const;

  // An account whose e-mail address is confirmed; replaces one of the same address.
  void addAccount(const std::string& email, const std::string& password);
  // Lets `token` sign in, under an account that is made when there is none yet.
  void allowFacebookToken(const std::string& token, const std::string& email);
  // What the link in the confirmation e-mail does. False for an unknown address.
  bool confirmEmail(const std::string& email);
  // The link in the last confirmation e-mail. Absent for an unknown address.
  std::optional<std::string> confirmationLink(const std::string& email) const;
  // Makes every access token given out so far one that is refused; refresh tokens stay good.
  void expireAccessTokens();

  // Scripts of one operation are used in the order in which they were given, each for its number of calls.
  void script(Operation operation, Script script);
  // Replaces all scripts of one operation by this one; one with `calls` 0 only removes them.
  void arm(Operation operation, Script script);
  // Forgets all scripts and all requests seen. Accounts and tokens stay.
  void reset();
  // Forgets accounts, tokens and e-mails, too: the sandbox is as it was made.
  void resetAll();

  // All requests, in the order of arrival. A request is here before it is answered.
  std::vector<SeenRequest> seen() const;
  // Those of one operation.
  std::vector<SeenRequest> seen(Operation operation) const;
  // Blocks until at least `count` requests of that operation have been seen; false on time-out.
  bool waitUntilSeen(Operation operation, std::size_t count, std::chrono::milliseconds timeout) const;
  // How many connections were opened since the start. With a page, those on which a call or another request arrived
  // that is not the page's.
  std::size_t connections() const;

 private:
  struct Impl;
  const std::unique_ptr<Impl> impl_;
};

// The path of an operation's endpoint.
std::string_view path(Operation operation);

}  // namespace HalvernApi::Testing
