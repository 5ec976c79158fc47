#include "Server.hpp"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <future>
#include <list>
#include <stdexcept>

namespace HalvernApi::Testing {
namespace {

constexpr int idleSeconds = 60;

// One accepted connection, as httplib reads and writes it. Belongs to the thread that serves it.
class Connection final : public httplib::Stream {
 public:
  explicit Connection(int socket) : socket_(socket) { current = this; }
  ~Connection() override { current = nullptr; }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // The one that the calling thread serves.
  static thread_local Connection* current;

  void drop() { dropped_ = true; }

  // False once the client has gone, or has been silent for too long.
  bool awaitRequest() {
    if (begin_ < end_) return true;
    pollfd entry{socket_, POLLIN, 0};
    return ::poll(&entry, 1, idleSeconds * 1000) > 0 && fill();
  }

  // httplib takes a request without a length to go on until the connection ends; by the standard it has no body.
  void complete(httplib::Request& request) {
    lengthAdded = !request.has_header("Content-Length") && !request.has_header("Transfer-Encoding");
    if (lengthAdded) request.set_header("Content-Length", "0");
  }
  bool lengthAdded = false;

  bool is_readable() const override { return true; }
  bool is_writable() const override { return !dropped_; }
  ssize_t read(char* bytes, std::size_t size) override {
    if (begin_ == end_ && !fill()) return 0;
    const std::size_t count = std::min(size, end_ - begin_);
    std::copy_n(buffer_.begin() + static_cast<std::ptrdiff_t>(begin_), count, bytes);
    begin_ += count;
    return static_cast<ssize_t>(count);
  }
  ssize_t write(const char* bytes, std::size_t size) override {
    for (std::size_t sent = 0; sent < size;) {
      const ssize_t count = dropped_ ? -1 : ::send(socket_, bytes + sent, size - sent, MSG_NOSIGNAL);
      if (count < 0) return -1;
      sent += static_cast<std::size_t>(count);
    }
    return static_cast<ssize_t>(size);
  }
  void get_remote_ip_and_port(std::string&, int&) const override {}
  void get_local_ip_and_port(std::string&, int&) const override {}
  socket_t socket() const override { return socket_; }

 private:
  bool fill() {
    const ssize_t count = ::recv(socket_, buffer_.data(), buffer_.size(), 0);
    begin_ = 0;
    end_ = count > 0 ? static_cast<std::size_t>(count) : 0;
    return count > 0;
  }

  const int socket_;
  bool dropped_ = false;
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
  std::array<char, 16384> buffer_;
};

thread_local Connection* Connection::current = nullptr;

// With httplib's pool, connections that are kept alive would starve the next ones. Used by the listening thread only.
class ThreadPerConnection final : public httplib::TaskQueue {
 public:
  void enqueue(std::function<void()> serve) override {
    threads_.remove_if(
        [](const auto& thread) { return thread.wait_for(std::chrono::seconds(0)) == std::future_status::ready; });
    threads_.push_back(std::async(std::launch::async, std::move(serve)));
  }
  void shutdown() override { threads_.clear(); }  // each waits for its end

 private:
  std::list<std::future<void>> threads_;
};

}  // namespace

Server::Server(int port) : port_(port) {
  restore();
  set_tcp_nodelay(true);
  set_keep_alive_timeout(idleSeconds);
  set_keep_alive_max_count(1'000'000);
  // Unlike httplib's own options these do not let two servers share a port.
  set_socket_options([](int socket) {
    const int on = 1;
    ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  });
  new_task_queue = [] { return new ThreadPerConnection; };
  const auto handler = [this](const httplib::Request& request, httplib::Response& response) {
    serve(request, response);
  };
  Get(".*", handler);
  Post(".*", handler);
  Put(".*", handler);
  Patch(".*", handler);
  Delete(".*", handler);
  Options(".*", handler);

  if (port == 0)
    port_ = bind_to_any_port("127.0.0.1");
  else if (!bind_to_port("127.0.0.1", port))
    port_ = -1;
  if (port_ < 0) throw std::runtime_error("port " + std::to_string(port) + " of 127.0.0.1 cannot be had");
  // httplib's backlog of 5 makes a burst of connections wait for retransmissions.
  ::listen(svr_sock_, SOMAXCONN);
}

void Server::start(Handler handler) {
  handler_ = std::move(handler);
  thread_ = std::thread([this] { listen_after_bind(); });
}

// The listening socket is shut down rather than given to httplib's stop(), which does nothing when the thread has not
// come to accept yet; it is closed by that thread.
void Server::stop() {
  if (!thread_.joinable()) return;
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
    ::shutdown(svr_sock_, SHUT_RDWR);
    for (const int socket : sockets_) ::shutdown(socket, SHUT_RDWR);
  }
  thread_.join();
}

std::size_t Server::connections() const {
  const std::lock_guard lock(mutex_);
  return connections_;
}

bool Server::process_and_close_socket(int socket) {
  bool open = false;
  {
    const std::lock_guard lock(mutex_);
    open = !stopping_;
    sockets_.insert(socket);
    ++connections_;
  }
  Connection connection(socket);
  while (open && connection.awaitRequest()) {
    bool closed = false;
    open = process_request(connection, false, closed, [&](httplib::Request& request) { connection.complete(request); });
    open = open && !closed && connection.is_writable();
  }
  // Under the lock, so that `stop` never meets a number that stands for another socket by now.
  const std::lock_guard lock(mutex_);
  sockets_.erase(socket);
  ::close(socket);
  return true;
}

void Server::serve(const httplib::Request& request, httplib::Response& response) const {
  SeenRequest seen{
      .operation = {}, .method = request.method, .target = request.target, .headers = {}, .body = request.body};
  for (const auto& [name, value] : request.headers) {
    const bool added = name.starts_with("REMOTE_") || name.starts_with("LOCAL_") ||
                       (name == "Content-Length" && Connection::current->lengthAdded);
    if (!added) seen.headers.emplace_back(name, value);
  }
  const std::optional<Answer> answer = handler_(std::move(seen));
  if (!answer) return Connection::current->drop();
  response.status = answer->status;
  response.body = answer->body;
  if (!answer->contentType.empty()) response.set_header("Content-Type", answer->contentType);
  for (const auto& [name, value] : answer->headers) response.set_header(name, value);
}

}  // namespace HalvernApi::Testing
