// Signs in, sends an audiogram of each ear, and writes the fitting configuration of each to left.bin and right.bin in
// the working directory.
//
//   API_KEY=... PASSWORD=... [VERBOSE=1] fitting BASE-URL EMAIL
//
// Exit status: 0 both files written, 1 not, 2 used wrongly.
#include <HalvernApi/HalvernApi.hpp>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <future>
#include <iostream>

using namespace HalvernApi;

namespace {

// [task]
// A coroutine that starts at once and comes to an exit status, for which main can wait.
struct Task {
  struct promise_type {
    int result = 1;
    std::promise<int> ended;
    ~promise_type() { ended.set_value(result); }  // only now are the coroutine's variables gone
    Task get_return_object() { return {ended.get_future()}; }
    std::suspend_never initial_suspend() noexcept { return {}; }
    std::suspend_never final_suspend() noexcept { return {}; }
    void return_value(int value) { result = value; }
    void unhandled_exception() { std::terminate(); }
  };
  std::future<int> status;
};
// [task]

int fail(const char* step, const Error& error) {
  std::cerr << step << ": " << error << '\n';
  return 1;
}

bool save(const std::string& ear, const std::optional<Data>& configuration) {
  if (!configuration) {
    std::cerr << "The service has no configuration for the " << ear << " ear.\n";
    return false;
  }
  std::ofstream file(ear + ".bin", std::ios::binary);
  file << Foundation::textOf(*configuration) << std::flush;
  std::cerr << ear << ".bin: " << configuration->size() << " bytes\n";
  return file.good();
}

// [fitting]
Task fit(ApiService& service, std::string email, std::string password, std::vector<Audiogram> audiograms) {
  const auto account = co_await service.login(email, password, "example-1", "Example");
  if (!account) co_return fail("Signing in", account.error());
  const auto fitting = co_await service.profile(audiograms, account->accessToken());
  if (!fitting) co_return fail("Fitting", fitting.error());
  const bool left = save("left", fitting->leftData());
  const bool right = save("right", fitting->rightData());
  if (!left || !right) co_return 1;
  co_return 0;
}
// [fitting]

}  // namespace

int main(int argc, char** argv) {
  const char* const apiKey = std::getenv("API_KEY");
  const char* const password = std::getenv("PASSWORD");
  if (argc != 3 || apiKey == nullptr || password == nullptr) {
    std::cerr << "usage: API_KEY=... PASSWORD=... fitting BASE-URL EMAIL\n";
    return 2;
  }
  // The library prints the body of every answer on standard output, tokens included. Nobody is to see them.
  if (std::freopen("/dev/null", "w", stdout) == nullptr) return 1;

  const std::vector<Audiogram> audiograms{
      {DeviceOrientation::left, "L-1001", "Slim 0.9", {{500, 20}, {1000, 30}, {2000, 45}, {4000, 60}}},
      {DeviceOrientation::right, "R-1002", "Slim 0.9", {{500, 20}, {1000, 25}, {2000, 35.5}, {4000, 50}}}};
  if (std::getenv("VERBOSE") != nullptr) {
    // [log]
    Environment::log = [](const std::string& line) { std::clog << line + '\n'; };
    // [log]
  }
  // [configuration]
  using std::chrono::seconds;
  const URLSessionConfiguration configuration{.timeoutIntervalForRequest = seconds(20),
                                              .timeoutIntervalForResource = seconds(90)};
  HttpApiService service(argv[1], configuration, apiKey);
  // [configuration]
  // [wait]
  return fit(service, argv[2], password, audiograms).status.get();
  // [wait]
}
