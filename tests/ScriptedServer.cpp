#include "ScriptedServer.hpp"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <boost/algorithm/string/case_conv.hpp>
#include <optional>
#include <sstream>
#include <system_error>

namespace HalvernApi::Tests {

Answer http(int status, const std::string& contentType, const std::string& body) {
  std::string head = "HTTP/1.1 " + std::to_string(status) + " Scripted\r\n";
  if (!contentType.empty()) head += "Content-Type: " + contentType + "\r\n";
  if (status != 204) head += "Content-Length: " + std::to_string(body.size()) + "\r\n";
  return {{Step::send, head + "\r\n" + body}};
}

Answer json(const std::string& body) { return http(200, "application/json", body); }

long Channel::read(char* into, std::size_t room) { return ::recv(socket_, into, room, 0); }
long Channel::write(const char* bytes, std::size_t count) { return ::send(socket_, bytes, count, MSG_NOSIGNAL); }

namespace {

int checked(int result) {
  return result >= 0 ? result : throw std::system_error(errno, std::generic_category(), "loopback");
}

// The next request, of which `buffer` holds what was read too much; absent when the connection ends before.
std::optional<Received> readRequest(Channel& channel, std::string& buffer) {
  const auto readUntil = [&](auto enough) {
    std::array<char, 16384> block;
    for (long count = 0; !enough(); buffer.append(block.data(), static_cast<std::size_t>(count)))
      if ((count = channel.read(block.data(), block.size())) <= 0) return false;
    return true;
  };
  std::size_t end = 0;
  if (!readUntil([&] { return (end = buffer.find("\r\n\r\n")) != std::string::npos; })) return std::nullopt;
  Received request;
  std::istringstream head(buffer.substr(0, end));
  std::getline(head, request.line, '\r');
  for (std::string line; std::getline(head.ignore(), line, '\r');) {
    const std::size_t colon = line.find(':');
    const std::size_t value = std::min(line.find_first_not_of(' ', colon + 1), line.size());
    request.headers.emplace(boost::algorithm::to_lower_copy(line.substr(0, colon)), line.substr(value));
  }
  const auto length = request.headers.find("content-length");
  const std::size_t size = end + 4 + (length != request.headers.end() ? std::stoul(length->second) : 0);
  if (!readUntil([&] { return buffer.size() >= size; })) return std::nullopt;
  request.raw = buffer.substr(0, size);
  request.body = request.raw.substr(end + 4);
  buffer.erase(0, size);
  return request;
}

}  // namespace

ScriptedServer::ScriptedServer(std::vector<Answer> answers, MakeChannel makeChannel)
    : answers_(std::move(answers)),
      makeChannel_(std::move(makeChannel)),
      listener_(checked(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))) {
  sockaddr_in address{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
  socklen_t size = sizeof address;
  checked(::bind(listener_, reinterpret_cast<sockaddr*>(&address), size));
  checked(::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size));
  checked(::listen(listener_, SOMAXCONN));
  authority_ = "127.0.0.1:" + std::to_string(ntohs(address.sin_port));
  accepting_ = std::thread([this] { acceptAll(); });
}

ScriptedServer::~ScriptedServer() {
  std::unique_lock lock(mutex_);
  stopping_ = true;
  changed_.notify_all();
  ::shutdown(listener_, SHUT_RDWR);
  for (const int socket : open_) ::shutdown(socket, SHUT_RDWR);
  lock.unlock();
  accepting_.join();
  for (std::thread& thread : serving_) thread.join();
  ::close(listener_);
}

void ScriptedServer::release() {
  const std::lock_guard lock(mutex_);
  released_ = true;
  changed_.notify_all();
}

bool ScriptedServer::awaitRequests(std::size_t count) {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, std::chrono::seconds(10), [&] { return requests_.size() >= count; });
}

bool ScriptedServer::awaitClosed(int count) {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, std::chrono::seconds(10), [&] { return closed_ >= count; });
}

std::vector<Received> ScriptedServer::requests() const {
  const std::lock_guard lock(mutex_);
  return requests_;
}

int ScriptedServer::connections() const {
  const std::lock_guard lock(mutex_);
  return connections_;
}

void ScriptedServer::acceptAll() {
  for (int socket = 0; (socket = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
    const int on = 1;  // pieces go out as they are scripted
    ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    const std::lock_guard lock(mutex_);
    if (stopping_) ::shutdown(socket, SHUT_RDWR);
    open_.insert(socket);
    ++connections_;
    serving_.emplace_back([this, socket] { serve(socket); });
  }
}

void ScriptedServer::serve(int socket) {
  if (const auto channel = makeChannel_(socket)) {
    std::string buffer;
    bool open = true;
    while (open) {
      auto request = readRequest(*channel, buffer);
      if (!request) break;
      std::unique_lock lock(mutex_);
      const Answer& answer = answers_[std::min(requests_.size(), answers_.size() - 1)];
      requests_.push_back(*std::move(request));
      changed_.notify_all();
      lock.unlock();
      open = std::all_of(answer.begin(), answer.end(), [&](const Step& step) { return play(step, *channel, socket); });
    }
  }
  const std::lock_guard lock(mutex_);
  open_.erase(socket);
  ::close(socket);
  ++closed_;
  changed_.notify_all();
}

// False when the connection is to end.
bool ScriptedServer::play(const Step& step, Channel& channel, int socket) {
  switch (step.kind) {
    case Step::send: return sendAll(channel, step.bytes, step.bytes.size(), {});
    case Step::drip: return sendAll(channel, step.bytes, 1, step.time);
    case Step::pause: return rest(step.time);
    case Step::hold: {
      std::unique_lock lock(mutex_);
      changed_.wait(lock, [this] { return released_ || stopping_; });
      return !stopping_;
    }
    case Step::close: return false;
    case Step::reset: {
      const linger abrupt{1, 0};
      ::setsockopt(socket, SOL_SOCKET, SO_LINGER, &abrupt, sizeof abrupt);
      return false;
    }
  }
  return false;
}

bool ScriptedServer::sendAll(Channel& channel, const std::string& bytes, std::size_t piece,
                             std::chrono::milliseconds pause) {
  for (std::size_t sent = 0; sent < bytes.size();) {
    const long count = channel.write(bytes.data() + sent, std::min(piece, bytes.size() - sent));
    if (count < 0 || (pause.count() > 0 && !rest(pause))) return false;
    sent += static_cast<std::size_t>(count);
  }
  return true;
}

// False when the server ends meanwhile.
bool ScriptedServer::rest(std::chrono::milliseconds time) {
  std::unique_lock lock(mutex_);
  return !changed_.wait_for(lock, time, [this] { return stopping_; });
}

}  // namespace HalvernApi::Tests
