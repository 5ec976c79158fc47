// A client with cpp-httplib and nlohmann/json, for comparison. Each call in flight has a thread and a client object,
// because the interface blocks.
#include <httplib.h>
#include <openssl/evp.h>

#include <mutex>
#include <nlohmann/json.hpp>

#include "Measure.hpp"

int main(int argc, char** argv) {
  const auto arguments = Bench::Arguments::read(argc, argv);
  Bench::Meter meter(arguments.calls);
  std::mutex mutex;
  const auto work = [&] {
    httplib::Client client(arguments.baseUrl);
    client.set_keep_alive(true);
    client.set_tcp_nodelay(true);
    const httplib::Headers headers = {{"Accept", "application/json"}, {"Api-Key", "sandbox-key"}};
    for (;;) {
      std::unique_lock lock(mutex);
      if (!meter.more()) return;
      const auto started = meter.start();
      lock.unlock();
      const auto body = arguments.isLogin ? nlohmann::json{{"email", "somebody@example.com"},
                                                           {"password", "correct horse"},
                                                           {"appInstanceId", "instance-1"},
                                                           {"appInstanceName", "Phone"}}
                                          : nlohmann::json{{"aids", nlohmann::json::array()}};
      const auto answer = client.Post(arguments.operation().path, headers, body.dump(), "application/json");
      if (!answer || answer->status != 200) Bench::Meter::failed();
      std::puts(answer->body.c_str());
      const auto json = nlohmann::json::parse(answer->body);
      if (arguments.isLogin) {
        if (json.at("accessToken").get<std::string>().empty()) Bench::Meter::failed();
      } else {
        const std::string text = json.at("leftConfiguration").get<std::string>();
        std::vector<unsigned char> bytes(text.size());
        const auto* const from = reinterpret_cast<const unsigned char*>(text.data());
        if (EVP_DecodeBlock(bytes.data(), from, static_cast<int>(text.size())) <= 0) Bench::Meter::failed();
      }
      lock.lock();
      meter.end(started);
    }
  };
  std::vector<std::thread> threads;
  for (int i = 0; i < arguments.inFlight; ++i) threads.emplace_back(work);
  for (std::thread& thread : threads) thread.join();
  meter.report();
}
