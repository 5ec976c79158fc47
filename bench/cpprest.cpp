// A client with cpprestsdk, for comparison. The continuation of each call starts the next call.
#include <cpprest/http_client.h>
#include <cpprest/json.h>

#include <future>
#include <mutex>

#include "Measure.hpp"

int main(int argc, char** argv) {
  const auto arguments = Bench::Arguments::read(argc, argv);
  Bench::Meter meter(arguments.calls);
  web::http::client::http_client client(arguments.baseUrl);
  std::mutex mutex;
  std::promise<void> done;
  const std::function<void()> call = [&] {
    std::unique_lock lock(mutex);
    if (!meter.more()) return;
    const auto started = meter.start();
    lock.unlock();
    auto body = web::json::value::object();
    body["email"] = web::json::value::string("somebody@example.com");
    body["password"] = web::json::value::string("correct horse");
    body["appInstanceId"] = web::json::value::string("instance-1");
    body["appInstanceName"] = web::json::value::string("Phone");
    web::http::http_request request(web::http::methods::POST);
    request.set_request_uri(Bench::login.path);
    request.headers().add("Accept", "application/json");
    request.headers().add("Api-Key", "sandbox-key");
    request.set_body(body);
    client.request(request)
        .then([](const web::http::http_response& answer) { return answer.extract_string(); })
        .then([&, started](const pplx::task<std::string>& answer) {
          try {
            std::puts(answer.get().c_str());
            if (web::json::value::parse(answer.get()).at("accessToken").as_string().empty()) Bench::Meter::failed();
          } catch (const std::exception&) {
            Bench::Meter::failed();
          }
          std::unique_lock ending(mutex);
          const bool last = meter.end(started);
          ending.unlock();
          last ? done.set_value() : call();
        });
  };
  for (int i = 0; i < arguments.inFlight; ++i) call();
  done.get_future().wait();
  std::unique_lock lock(mutex);
  meter.report();
  std::_Exit(0);
}
