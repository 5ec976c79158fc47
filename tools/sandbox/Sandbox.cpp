#include "HalvernApi/Testing/Sandbox.hpp"

#include <boost/algorithm/string/predicate.hpp>
#include <condition_variable>
#include <mutex>

#include "Page.hpp"
#include "Server.hpp"

namespace HalvernApi::Testing {

std::optional<std::string> SeenRequest::header(std::string_view name) const {
  for (const auto& [candidate, value] : headers)
    if (boost::iequals(candidate, name)) return value;
  return std::nullopt;
}

constexpr auto forever =
    std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::duration::max());

struct Sandbox::Impl {
  // Locks the state. If the state has changed, unlocking notifies all waiting threads.
  class Locked {
   public:
    explicit Locked(Impl& impl) : impl_(impl), lock_(impl.mutex), version_(impl.state.version) {}
    ~Locked() {
      if (impl_.state.version == version_) return;
      impl_.changed.notify_all();
      if (impl_.options.page) impl_.server.notify();
    }
    State* operator->() const { return &impl_.state; }
    State& operator*() const { return impl_.state; }

   private:
    Impl& impl_;
    const std::lock_guard<std::mutex> lock_;
    const std::size_t version_;
  };
  Locked locked() { return Locked(*this); }

  explicit Impl(const Options& given)
      : options(given), state{{options.apiKey, options.accessTokenLifetime}, options.page}, server(options.port) {
    state.service.baseUrl = "http://127.0.0.1:" + std::to_string(server.port());
    server.start([this](SeenRequest request, const std::string&) { return handle(std::move(request)); });
  }

  std::vector<Step> handle(SeenRequest request) {
    if (options.page && isForPage(request.target)) return answerPage(request);
    request.operation = operationAt(request.target);
    std::size_t number = 0;
    const Script script = locked()->add(request, number);
    const auto delay = script.never ? forever : script.delay;
    std::vector<Step> steps;
    steps.reserve(4);
    steps.push_back({Step::count});
    if (delay.count() > 0)
      steps.push_back({Step::pause, {}, delay, {}, [this, number] { locked()->end(number, Call::abandoned); }});
    steps.push_back({Step::send, {}, {}, [this, number, script, request = std::move(request)] {
                       return script.drop ? drop(number) : answer(number, script, request);
                     }});
    if (script.drop) steps.push_back({Step::close});
    return steps;
  }

  // Ends the call without an answer.
  std::string drop(std::size_t number) {
    locked()->end(number, Call::closed);
    return {};
  }

  // Ends the call. Returns the bytes of the answer.
  std::string answer(std::size_t number, const Script& script, const SeenRequest& request) {
    Answer answer = script.answer ? *script.answer : judge(request);
    if (!canHaveBody(answer.status)) answer.body.clear();
    locked()->end(number, Call::answered, answer);
    return bytesOf(answer, request);
  }

  static std::string bytesOf(const Answer& answer, const SeenRequest& request) {
    std::string bytes = serialize(answer);
    if (request.method == "HEAD") bytes.resize(bytes.find("\r\n\r\n") + 4);
    return bytes;
  }

  Answer judge(const SeenRequest& request) {
    std::vector<Mail> sent;
    Answer answer = locked()->answer(request, sent);
    for (const auto& [email, text] : sent)
      if (options.mail) options.mail(email, text);
    return answer;
  }

  std::vector<Step> answerPage(const SeenRequest& request) {
    const Answer answer = Testing::answerPage(*locked(), request, options.chart);
    if (answer.contentType != eventStream) return {{Step::send, bytesOf(answer, request)}};
    return {{Step::send, serialize(answer, false)},
            {Step::follow, {}, std::chrono::milliseconds(50), [this, version = std::size_t{0}]() mutable {
               return eventSince(*locked(), version);
             }}};
  }

  const Options options;
  std::mutex mutex;  // guards `state`
  std::condition_variable changed;
  State state;
  Server server;  // last, so that it is destroyed first: its handler uses the other members
};

Sandbox::Sandbox() : Sandbox(Options()) {}
Sandbox::Sandbox(Options options) : impl_(std::make_unique<Impl>(options)) {}
Sandbox::~Sandbox() = default;

int Sandbox::port() const { return impl_->server.port(); }
std::string Sandbox::baseUrl() const { return impl_->state.service.baseUrl; }
const std::string& Sandbox::apiKey() const { return impl_->options.apiKey; }

std::size_t Sandbox::connections() const {
  return impl_->options.page ? impl_->server.counted() : impl_->server.connections();
}

void Sandbox::addAccount(const std::string& email, const std::string& password) {
  impl_->locked()->addAccount(email, password);
}

void Sandbox::allowFacebookToken(const std::string& token, const std::string& email) {
  impl_->locked()->service.facebookTokens[token] = email;
}

bool Sandbox::confirmEmail(const std::string& email) { return impl_->locked()->confirm(email); }

std::optional<std::string> Sandbox::confirmationLink(const std::string& email) const {
  const auto state = impl_->locked();
  const Account* const account = state->service.find(email);
  return account != nullptr ? std::optional(state->service.link(*account)) : std::nullopt;
}

void Sandbox::expireAccessTokens() { impl_->locked()->expireAccessTokens(); }

void Sandbox::script(Operation operation, Script script) { impl_->locked()->addScript(operation, std::move(script)); }

void Sandbox::arm(Operation operation, Script script) { impl_->locked()->arm(operation, std::move(script)); }

void Sandbox::reset() { impl_->locked()->reset(); }

void Sandbox::resetAll() { impl_->locked()->resetAll(); }

std::vector<SeenRequest> Sandbox::seen() const { return impl_->locked()->requests(); }

std::vector<SeenRequest> Sandbox::seen(Operation operation) const { return impl_->locked()->requests(operation); }

bool Sandbox::waitUntilSeen(Operation operation, std::size_t count, std::chrono::milliseconds timeout) const {
  std::unique_lock lock(impl_->mutex);
  return impl_->changed.wait_for(lock, timeout, [&] { return impl_->state.seen[operation] >= count; });
}

}  // namespace HalvernApi::Testing
