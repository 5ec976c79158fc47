// The baseline: libcurl's multi interface with the event loop from its documentation, without threads and JSON.
#include <curl/curl.h>

#include <memory>

#include "Measure.hpp"

namespace {

struct Call {
  CURL* easy = nullptr;
  std::string body;
  Bench::Clock::time_point started;
};

std::size_t collect(char* data, std::size_t, std::size_t count, void* call) {
  static_cast<Call*>(call)->body.append(data, count);
  return count;
}

}  // namespace

int main(int argc, char** argv) {
  const auto arguments = Bench::Arguments::read(argc, argv);
  Bench::Meter meter(arguments.calls);
  curl_global_init(CURL_GLOBAL_DEFAULT);
  CURLM* const multi = curl_multi_init();
  if (arguments.calls == 0) curl_multi_setopt(multi, CURLMOPT_MAX_HOST_CONNECTIONS, 6L);
  curl_slist* headers = nullptr;
  for (const char* line : {"Accept-Language: en", "User-Agent: bare", "Accept: application/json",
                           "Api-Key: sandbox-key", "Content-Type: application/json", "Expect:"})
    headers = curl_slist_append(headers, line);
  const std::string url = arguments.baseUrl + arguments.operation().path;
  std::vector<std::unique_ptr<Call>> calls;
  const double memory = Bench::residentBytes();
  const auto start = [&](Call& call) {
    call.body.clear();
    call.started = meter.start();
    curl_multi_add_handle(multi, call.easy);
  };
  for (int i = 0; i < std::max(arguments.inFlight, 1); ++i) {
    Call& call = *calls.emplace_back(std::make_unique<Call>());
    call.easy = curl_easy_init();
    curl_easy_setopt(call.easy, CURLOPT_URL, url.c_str());
    curl_easy_setopt(call.easy, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(call.easy, CURLOPT_POSTFIELDS, arguments.operation().body);
    curl_easy_setopt(call.easy, CURLOPT_ACCEPT_ENCODING, "");
    curl_easy_setopt(call.easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(call.easy, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    if (!arguments.certificateAuthority.empty())
      curl_easy_setopt(call.easy, CURLOPT_CAINFO, arguments.certificateAuthority.c_str());
    curl_easy_setopt(call.easy, CURLOPT_WRITEFUNCTION, collect);
    curl_easy_setopt(call.easy, CURLOPT_WRITEDATA, &call);
    curl_easy_setopt(call.easy, CURLOPT_PRIVATE, &call);
    start(call);
  }
  if (arguments.calls == 0) {
    int running = 0;
    Bench::reportMemory(memory, arguments.inFlight, [&] { curl_multi_perform(multi, &running); });
    std::_Exit(0);
  }
  for (int running = 1; running > 0;) {
    curl_multi_perform(multi, &running);
    int left = 0;
    while (const CURLMsg* const message = curl_multi_info_read(multi, &left)) {
      char* address = nullptr;
      curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &address);
      Call& call = *reinterpret_cast<Call*>(address);
      if (message->data.result != CURLE_OK || call.body.empty()) meter.failed();
      curl_multi_remove_handle(multi, call.easy);
      meter.end(call.started);
      if (meter.more()) {
        start(call);
        running = 1;
      }
    }
    if (running > 0) curl_multi_poll(multi, nullptr, 0, 1000, nullptr);
  }
  meter.report();
  for (const auto& call : calls) curl_easy_cleanup(call->easy);
  curl_multi_cleanup(multi);
  curl_slist_free_all(headers);
}
