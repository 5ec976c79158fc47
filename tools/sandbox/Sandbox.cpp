#include "HalvernApi/Testing/Sandbox.hpp"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <map>

#include "Server.hpp"
#include "Service.hpp"

namespace HalvernApi::Testing {

std::optional<std::string> SeenRequest::header(std::string_view name) const {
  const auto lower = [](char letter) { return letter >= 'A' && letter <= 'Z' ? letter + ('a' - 'A') : letter; };
  for (const auto& [candidate, value] : headers)
    if (std::equal(candidate.begin(), candidate.end(), name.begin(), name.end(),
                   [&](char left, char right) { return lower(left) == lower(right); }))
      return value;
  return std::nullopt;
}

struct Sandbox::Impl {
  explicit Impl(const Options& options)
      : server(options.port), service(options, "http://127.0.0.1:" + std::to_string(server.port())) {
    server.start([this](SeenRequest request, const std::string&) { return handle(std::move(request)); });
  }
  ~Impl() { server.stop(); }

  std::vector<Step> handle(SeenRequest request) {
    request.operation = operationAt(request.target);
    Script script;
    {
      const std::lock_guard lock(mutex);
      requests.push_back(request);
      changed.notify_all();
      if (request.operation) script = next(*request.operation);
    }
    const Step delay{Step::pause, {}, script.delay};
    if (script.drop) return {delay, {Step::close}};
    return {delay, {Step::send, {}, {}, [this, request = std::move(request), answer = std::move(script.answer)] {
                      std::string text = serialize(answer ? *answer : service.answer(request));
                      if (request.method == "HEAD") text.resize(text.find("\r\n\r\n") + 4);
                      return text;
                    }}};
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

  Server server;
  Service service;
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<SeenRequest> requests;
  std::map<Operation, std::deque<Script>> scripts;
};

Sandbox::Sandbox() : Sandbox(Options()) {}
Sandbox::Sandbox(Options options) : impl_(std::make_unique<Impl>(options)) {}
Sandbox::~Sandbox() = default;

int Sandbox::port() const { return impl_->server.port(); }
std::string Sandbox::baseUrl() const { return impl_->service.baseUrl(); }
const std::string& Sandbox::apiKey() const { return impl_->service.apiKey(); }
std::size_t Sandbox::connections() const { return impl_->server.connections(); }

void Sandbox::addAccount(const std::string& email, const std::string& password) {
  impl_->service.addAccount(email, password);
}
void Sandbox::allowFacebookToken(const std::string& token, const std::string& email) {
  impl_->service.allowFacebookToken(token, email);
}
bool Sandbox::confirmEmail(const std::string& email) { return impl_->service.confirmEmail(email); }
std::optional<std::string> Sandbox::confirmationLink(const std::string& email) const {
  return impl_->service.confirmationLink(email);
}
void Sandbox::expireAccessTokens() { impl_->service.expireAccessTokens(); }

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
