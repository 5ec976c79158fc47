#include "Server.hpp"

#include <atomic>
#include <boost/asio.hpp>
#include <boost/asio/experimental/awaitable_operators.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/beast/http.hpp>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <thread>

namespace HalvernApi::Testing {

namespace asio = boost::asio;
namespace http = boost::beast::http;
using asio::awaitable, asio::use_awaitable, asio::ip::tcp;

constexpr std::size_t maxBody = 8 << 20;  // of a request; larger bodies are refused
constexpr auto withError = asio::as_tuple(use_awaitable);

bool canHaveBody(int status) { return status != 204 && status != 304; }

std::string serialize(const Answer& answer, bool hasLength) {
  std::string text = "HTTP/1.1 " + std::to_string(answer.status) + ' ' +
                     std::string(http::obsolete_reason(http::status(answer.status))) + "\r\n";
  const auto add = [&](const std::string& name, const std::string& value) { text += name + ": " + value + "\r\n"; };
  if (!answer.contentType.empty()) add("Content-Type", answer.contentType);
  if (hasLength && canHaveBody(answer.status)) add("Content-Length", std::to_string(answer.body.size()));
  for (const auto& [name, value] : answer.headers) add(name, value);
  return text + "\r\n" + answer.body;
}

// The connections are served by coroutines that run on `thread`. Only this thread uses the connections.
struct Server::Impl {
  Impl(int port, std::shared_ptr<ssl_ctx_st> context) : tls(std::move(context)) {
    // Asio opens sockets without SOCK_CLOEXEC: programs that the process starts would inherit them.
    acceptor.assign(tcp::v4(), ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    acceptor.set_option(tcp::acceptor::reuse_address(true));
    acceptor.bind({asio::ip::address_v4::loopback(), static_cast<asio::ip::port_type>(port)});
    acceptor.listen();
    bound = acceptor.local_endpoint().port();
  }

  awaitable<void> acceptAll() {
    for (;;) {
      co_await acceptor.async_wait(tcp::acceptor::wait_read, use_awaitable);
      const int descriptor = ::accept4(acceptor.native_handle(), nullptr, nullptr, SOCK_CLOEXEC);
      if (descriptor >= 0) {
        ++connections;
        spawn(serve(descriptor));
      } else if (errno != EAGAIN && errno != ECONNABORTED) {
        // The system has no free descriptor or no memory. The connection stays in the queue, and the acceptor stays
        // readable.
        co_await pause(std::chrono::milliseconds(20));
      }
    }
  }

  void spawn(awaitable<void> coroutine) {
    asio::co_spawn(io, std::move(coroutine), [](const std::exception_ptr& fault) {
      if (fault) std::rethrow_exception(fault);
    });
  }

  // Faulty bytes from a client end only the connection of that client.
  awaitable<void> serve(int descriptor) {
    try {
      tcp::socket socket(io, tcp::v4(), descriptor);
      socket.set_option(tcp::no_delay(true));  // so that the bytes of each step are sent immediately
      if (tls) {
        Connection<asio::ssl::stream<tcp::socket>> connection{*this, {std::move(socket), SSL_new(tls.get())}};
        co_await connection.answerAll();
      } else {
        Connection<tcp::socket> connection{*this, std::move(socket)};
        co_await connection.answerAll();
      }
    } catch (const boost::system::system_error&) {  // the client closed the connection, or violated the protocol
    } catch (const std::bad_alloc&) {
    } catch (const std::length_error&) {  // a header that is too long for the parser
    }
    const std::lock_guard lock(mutex);
    ++closed;
    changed.notify_all();
  }

  // Serves one connection.
  template <class Stream>
  struct Connection {
    awaitable<void> answerAll() {
      if constexpr (!std::is_same_v<Stream, tcp::socket>)
        co_await stream.async_handshake(asio::ssl::stream_base::server, use_awaitable);
      for (bool open = co_await play(server.greeting); open;) open = co_await answerOne();
    }

    // Returns false if the connection must be closed.
    awaitable<bool> answerOne() {
      http::request_parser<http::string_body> parser;
      parser.eager(true);
      parser.header_limit(1 << 20);
      parser.body_limit(maxBody);
      std::string raw;
      for (boost::system::error_code error; true;) {
        const std::size_t used = parser.put(asio::buffer(unread), error);
        raw.append(unread, 0, used);
        unread.erase(0, used);
        if (error == http::error::body_limit) {
          const std::string refusal = serialize({.status = 413, .contentType = ""});
          co_await asio::async_write(stream, asio::buffer(refusal), use_awaitable);
        }
        if (error && error != http::error::need_more) co_return false;
        if (parser.is_done()) break;
        co_await asio::async_read(stream, asio::dynamic_buffer(unread), asio::transfer_at_least(1), use_awaitable);
      }
      const auto& request = parser.get();
      SeenRequest seen{{}, request.method_string(), request.target(), {}, request.body()};
      for (const auto& field : request) seen.headers.emplace_back(field.name_string(), field.value());
      const std::vector<Step> steps = server.handler(std::move(seen), raw);
      co_return co_await play(steps) && parser.keep_alive();
    }

    // Returns false if the connection must be closed.
    awaitable<bool> play(const std::vector<Step>& steps) {
      for (const Step& step : steps) {
        if (step.kind == Step::count && !std::exchange(isCounted, true)) ++server.counted;
        if (step.kind == Step::follow) {
          co_await follow(step);
          continue;
        }
        if (step.kind == Step::reset) {
          stream.lowest_layer().set_option(tcp::socket::linger(true, 0));
          stream.lowest_layer().close();  // the destructor would reset the option
        }
        if (step.kind == Step::reset || step.kind == Step::close) co_return false;
        if (step.kind == Step::hold) co_await server.hold.async_wait(withError);
        const std::string bytes = step.bytes + (step.make ? step.make() : "");
        const std::size_t piece = step.kind == Step::drip ? 1 : bytes.size();
        for (std::size_t sent = 0; sent < bytes.size(); sent += piece) {
          co_await asio::async_write(stream, asio::buffer(bytes.data() + sent, piece), use_awaitable);
          if (step.kind == Step::drip) co_await server.pause(step.time);
        }
        if (step.kind == Step::pause && !co_await staysFor(step.time)) {
          if (step.left) step.left();
          co_return false;
        }
      }
      co_return true;
    }

    awaitable<void> follow(const Step& step) {
      using namespace asio::experimental::awaitable_operators;
      for (;;) {
        const std::string bytes = step.make();
        if (!bytes.empty()) {
          co_await asio::async_write(stream, asio::buffer(bytes), use_awaitable);
          co_await server.pause(step.time);
          continue;
        }
        // No other coroutine runs between `make` and the wait, so no notification is missed.
        const auto first = co_await (server.notified.async_wait(withError) ||
                                     stream.lowest_layer().async_wait(tcp::socket::wait_read, withError));
        if (first.index() == 1) co_return;
      }
    }

    // Returns false as soon as the client closes the connection. Keeps what the client sends for the next request. If
    // that is more than `maxBody`, returns false, too.
    awaitable<bool> staysFor(std::chrono::milliseconds time) {
      using namespace asio::experimental::awaitable_operators;
      asio::steady_timer timer(server.io, time);
      auto buffer = asio::dynamic_buffer(unread, maxBody);
      const auto first = co_await (timer.async_wait(withError) || asio::async_read(stream, buffer, withError));
      co_return first.index() == 0;
    }

    Impl& server;
    Stream stream;
    std::string unread{};
    bool isCounted = false;
  };

  awaitable<void> pause(std::chrono::milliseconds time) {
    asio::steady_timer timer(io, time);
    co_await timer.async_wait(use_awaitable);
  }

  const std::shared_ptr<ssl_ctx_st> tls;
  Handler handler;
  std::vector<Step> greeting;
  asio::io_context io{1};
  tcp::acceptor acceptor{io};
  asio::steady_timer hold{io, asio::steady_timer::time_point::max()};
  asio::steady_timer notified{io, asio::steady_timer::time_point::max()};
  std::atomic<std::size_t> connections = 0, counted = 0;
  std::mutex mutex;  // guards `closed`
  std::condition_variable changed;
  std::size_t closed = 0;
  int bound = 0;
  std::thread thread;
};

Server::Server(int port, std::shared_ptr<ssl_ctx_st> tls) try : impl_(std::make_unique<Impl>(port, std::move(tls))) {
} catch (const boost::system::system_error&) {
  throw std::runtime_error("cannot listen on port " + std::to_string(port) + " of 127.0.0.1");
}

Server::~Server() {
  impl_->io.stop();
  if (impl_->thread.joinable()) impl_->thread.join();
}

void Server::start(Handler handler, std::vector<Step> greeting) {
  impl_->handler = std::move(handler);
  impl_->greeting = std::move(greeting);
  impl_->spawn(impl_->acceptAll());
  impl_->thread = std::thread([this] { impl_->io.run(); });
}

void Server::release() {
  asio::post(impl_->io, [this] { impl_->hold.expires_at(asio::steady_timer::time_point::min()); });
}

void Server::notify() {
  asio::post(impl_->io, [this] { impl_->notified.cancel(); });
}

int Server::port() const { return impl_->bound; }

std::size_t Server::connections() const { return impl_->connections; }

std::size_t Server::counted() const { return impl_->counted; }

bool Server::awaitClosed(std::size_t count) const {
  std::unique_lock lock(impl_->mutex);
  return impl_->changed.wait_for(lock, std::chrono::seconds(10), [&] { return impl_->closed >= count; });
}

}  // namespace HalvernApi::Testing
