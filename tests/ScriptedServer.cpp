#include "ScriptedServer.hpp"

#include <algorithm>
#include <boost/algorithm/string/case_conv.hpp>

namespace HalvernApi::Tests {

Answer http(int status, const std::string& contentType, const std::string& body) {
  return {{Step::send, serialize(Testing::Answer{.status = status, .body = body, .contentType = contentType})}};
}

Answer json(const std::string& body) { return http(200, "application/json", body); }

ScriptedServer::ScriptedServer(std::vector<Answer> answers, std::shared_ptr<ssl_ctx_st> tls, Answer greeting)
    : server_(0, std::move(tls)) {
  const auto handler = [this, answers = std::move(answers)](Testing::SeenRequest request, const std::string& raw) {
    Received received{.raw = raw, .line = raw.substr(0, raw.find('\r')), .headers = {}, .body = request.body};
    for (const auto& [name, value] : request.headers)
      received.headers.emplace(boost::algorithm::to_lower_copy(name), value);
    const std::lock_guard lock(mutex_);
    requests_.push_back(std::move(received));
    changed_.notify_all();
    return answers[std::min(requests_.size(), answers.size()) - 1];
  };
  server_.start(handler, std::move(greeting));
}

std::string ScriptedServer::authority() const { return "127.0.0.1:" + std::to_string(server_.port()); }

bool ScriptedServer::awaitRequests(std::size_t count) {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, std::chrono::seconds(10), [&] { return requests_.size() >= count; });
}

std::vector<Received> ScriptedServer::requests() const {
  const std::lock_guard lock(mutex_);
  return requests_;
}

}  // namespace HalvernApi::Tests
