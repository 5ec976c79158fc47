#include "State.hpp"

namespace HalvernApi::Testing {
namespace {

using std::chrono::steady_clock;
using std::chrono::system_clock;

// Copies the string, because resize() does not free memory.
void shorten(std::string& text, std::size_t size = State::maxText) {
  if (text.size() > size) text = text.substr(0, size);
}

// Keeps at most `State::maxHeaders` headers, and at most `State::maxText` bytes of all names and values together.
void shorten(std::vector<std::pair<std::string, std::string>>& headers) {
  if (headers.size() > State::maxHeaders) headers = {headers.begin(), headers.begin() + State::maxHeaders};
  std::size_t left = State::maxText;
  for (auto& [name, value] : headers)
    for (std::string* const part : {&name, &value}) {
      shorten(*part, left);
      left -= part->size();
    }
}

Script take(std::deque<Script>& queue) {
  while (!queue.empty() && queue.front().calls == 0) queue.pop_front();
  if (queue.empty()) return {};
  Script script = queue.front();
  if (script.calls != Script::always && --queue.front().calls == 0) queue.pop_front();
  return script;
}

}  // namespace

Script State::add(const SeenRequest& request, std::size_t& number) {
  number = nextNumber++;
  calls.push_back({number, system_clock::now(), steady_clock::now(), request, request.body.size(), ++version});
  if (hasPage) {
    SeenRequest& kept = calls.back().request;
    shorten(kept.body);
    shorten(kept.target);
    shorten(kept.method);
    shorten(kept.headers);
    if (calls.size() > maxCalls) calls.pop_front();
  }
  if (!request.operation) return {};
  ++seen[*request.operation];
  return take(scripts[*request.operation]);
}

Answer State::answer(const SeenRequest& request, std::vector<Mail>& sent) {
  ++version;
  Answer answer = service.answer(request);
  sent = std::exchange(service.outbox, {});
  if (!hasPage) return answer;
  mails.insert(mails.end(), sent.begin(), sent.end());
  while (mails.size() > maxMails) mails.pop_front();
  return answer;
}

void State::end(std::size_t number, Call::Outcome outcome, const Answer& answer) {
  Call* const call = find(number);
  if (!hasPage || call == nullptr) return;
  call->version = ++version;
  call->outcome = outcome;
  call->duration = steady_clock::now() - call->start;
  call->answer = answer;
  call->answerSize = answer.body.size();
  shorten(call->answer.body);
}

Call* State::find(std::size_t number) {
  if (calls.empty() || number < calls.front().number || number >= nextNumber) return nullptr;
  return &calls[number - calls.front().number];
}

std::vector<SeenRequest> State::requests(std::optional<Operation> operation) const {
  std::vector<SeenRequest> found;
  for (const Call& call : calls)
    if (!operation || call.request.operation == operation) found.push_back(call.request);
  return found;
}

void State::addAccount(const std::string& email, const std::string& password) {
  ++version;
  service.make(email, password, true);
}

void State::addScript(Operation operation, Script script) {
  ++version;
  scripts[operation].push_back(std::move(script));
}

void State::arm(Operation operation, Script script) {
  ++version;
  scripts.erase(operation);
  if (script.calls > 0) scripts[operation].push_back(std::move(script));
}

bool State::confirm(const std::string& email) {
  Account* const account = service.find(email);
  if (account == nullptr) return false;
  ++version;
  account->confirmed = true;
  return true;
}

void State::expireAccessTokens() {
  ++version;
  for (auto& [email, account] : service.accounts)
    for (SignIn& one : account.signIns) one.expiry = {};
}

void State::reset() {
  ++version;
  scripts.clear();
  calls.clear();
  seen.clear();
}

void State::resetAll() {
  reset();
  mails.clear();
  service.accounts.clear();
  service.facebookTokens = Service().facebookTokens;
}

}  // namespace HalvernApi::Testing
