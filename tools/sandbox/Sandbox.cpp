#include "HalvernApi/Testing/Sandbox.hpp"

#include <algorithm>
#include <boost/algorithm/string/predicate.hpp>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>

#include "Server.hpp"
#include "Service.hpp"

namespace HalvernApi::Testing {

std::optional<std::string> SeenRequest::header(std::string_view name) const {
  for (const auto& [candidate, value] : headers)
    if (boost::iequals(candidate, name)) return value;
  return std::nullopt;
}

struct Sandbox::Impl {
  explicit Impl(const Options& options)
      : mail(options.mail), service{options.apiKey, options.accessTokenLifetime}, server(options.port) {
    service.baseUrl = "http://127.0.0.1:" + std::to_string(server.port());
    service.facebookTokens["sandbox-facebook-token"] = "facebook.user@example.com";
    server.start([this](SeenRequest request, const std::string&) { return handle(std::move(request)); });
  }

  std::vector<Step> handle(SeenRequest request) {
    request.operation = operationAt(request.target);
    const std::lock_guard lock(mutex);
    requests.push_back(request);
    changed.notify_all();
    const Script script = request.operation ? next(*request.operation) : Script();
    const Step delay{Step::pause, {}, script.delay};
    if (script.drop) return {delay, {Step::close}};
    return {delay, {Step::send, {}, {}, [this, request = std::move(request), answer = script.answer] {
                      std::string text = serialize(answer ? *answer : judge(request));
                      if (request.method == "HEAD") text.resize(text.find("\r\n\r\n") + 4);
                      return text;
                    }}};
  }

  Answer judge(const SeenRequest& request) {
    std::unique_lock lock(mutex);
    Answer answer = service.answer(request);
    const auto mails = std::exchange(service.outbox, {});
    lock.unlock();
    for (const auto& [address, words] : mails)
      if (mail) mail(address, words);
    return answer;
  }

  Script next(Operation operation) {
    std::deque<Script>& queue = scripts[operation];
    while (!queue.empty() && queue.front().calls == 0) queue.pop_front();
    if (queue.empty()) return {};
    if (queue.front().calls != Script::always) --queue.front().calls;
    return queue.front();
  }

  std::vector<SeenRequest> of(Operation operation) const {
    std::vector<SeenRequest> found;
    std::copy_if(requests.begin(), requests.end(), std::back_inserter(found),
                 [&](const SeenRequest& request) { return request.operation == operation; });
    return found;
  }

  const decltype(Options::mail) mail;
  std::mutex mutex;  // for the members from here to `server`
  std::condition_variable changed;
  Service service;
  std::vector<SeenRequest> requests;
  std::map<Operation, std::deque<Script>> scripts;
  Server server;  // ends before what its handler uses
};

Sandbox::Sandbox() : Sandbox(Options()) {}
Sandbox::Sandbox(Options options) : impl_(std::make_unique<Impl>(options)) {}
Sandbox::~Sandbox() = default;

int Sandbox::port() const { return impl_->server.port(); }
std::string Sandbox::baseUrl() const { return impl_->service.baseUrl; }
const std::string& Sandbox::apiKey() const { return impl_->service.apiKey; }
std::size_t Sandbox::connections() const { return impl_->server.connections(); }

void Sandbox::addAccount(const std::string& email, const std::string& password) {
  const std::lock_guard lock(impl_->mutex);
  impl_->service.make(email, password, true);
}

void Sandbox::allowFacebookToken(const std::string& token, const std::string& email) {
  const std::lock_guard lock(impl_->mutex);
  impl_->service.facebookTokens[token] = email;
}

bool Sandbox::confirmEmail(const std::string& email) {
  const std::lock_guard lock(impl_->mutex);
  Account* const account = impl_->service.find(email);
  return account != nullptr && (account->confirmed = true);
}

std::optional<std::string> Sandbox::confirmationLink(const std::string& email) const {
  const std::lock_guard lock(impl_->mutex);
  const Account* const account = impl_->service.find(email);
  return account != nullptr ? std::optional(impl_->service.link(*account)) : std::nullopt;
}

void Sandbox::expireAccessTokens() {
  const std::lock_guard lock(impl_->mutex);
  for (auto& [email, account] : impl_->service.accounts)
    for (SignIn& one : account.signIns) one.expiry = {};
}

void Sandbox::script(Operation operation, Script script) {
  const std::lock_guard lock(impl_->mutex);
  impl_->scripts[operation].push_back(std::move(script));
}

void Sandbox::reset() {
  const std::lock_guard lock(impl_->mutex);
  impl_->scripts.clear();
  impl_->requests.clear();
}

std::vector<SeenRequest> Sandbox::seen() const {
  const std::lock_guard lock(impl_->mutex);
  return impl_->requests;
}

std::vector<SeenRequest> Sandbox::seen(Operation operation) const {
  const std::lock_guard lock(impl_->mutex);
  return impl_->of(operation);
}

bool Sandbox::waitUntilSeen(Operation operation, std::size_t count, std::chrono::milliseconds timeout) const {
  std::unique_lock lock(impl_->mutex);
  return impl_->changed.wait_for(lock, timeout, [&] { return impl_->of(operation).size() >= count; });
}

}  // namespace HalvernApi::Testing
