// Signs in, sends the audiograms of a file, and writes the fitting configuration of each ear to left.bin and right.bin
// in the working directory.
//
//   API_KEY=... PASSWORD=... [VERBOSE=1] fitting BASE-URL EMAIL AUDIOGRAMS
//
// Exit status: 0 both files written, 1 not both written, 2 wrong usage.
#include <HalvernApi/HalvernApi.hpp>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <iostream>
#include <sstream>

using namespace HalvernApi;

namespace {

// A coroutine that starts immediately and returns an exit status. `main` waits for the status.
struct Task {
  struct promise_type {
    int result = 1;
    std::promise<int> ended;
    ~promise_type() { ended.set_value(result); }  // the variables of the coroutine are destroyed before this
    Task get_return_object() { return {ended.get_future()}; }
    std::suspend_never initial_suspend() noexcept { return {}; }
    std::suspend_never final_suspend() noexcept { return {}; }
    void return_value(int value) { result = value; }
    void unhandled_exception() { std::terminate(); }
  };
  std::future<int> status;
};

int fail(const char* step, const Error& error) {
  std::cerr << step << ": " << error << '\n';
  return 1;
}

// Returns the audiograms in a file, or a message with the faults of the file.
Expected<std::vector<Audiogram>, std::string> readAudiograms(const std::string& name) {
  std::ostringstream text;
  text << std::ifstream(name, std::ios::binary).rdbuf();
  std::string fault = "not readable, or not JSON";
  auto audiograms = decode<std::vector<Audiogram>>(dataOf(text.str()), [&](const JsonValue& json) {
    auto decoded = JsonCodec<std::vector<Audiogram>>::decodeJson(json);
    if (!decoded) fault = decoded.error().description();
    return decoded;
  });
  if (!audiograms) return Unexpected<std::string>(name + ": " + fault);
  return *std::move(audiograms);
}

// Called before the service is used, because files of an earlier run may contain data of another patient.
void removeFiles() {
  for (const char* const file : {"left.bin", "right.bin"}) std::filesystem::remove(file);
}

// The file gets its final name only after it is complete.
bool save(const std::string& ear, const std::optional<Data>& configuration) {
  if (!configuration) {
    std::cerr << "The service has no configuration for the " << ear << " ear.\n";
    return false;
  }
  const std::string name = ear + ".bin", temporary = name + ".part";
  std::error_code error;
  std::ofstream file(temporary, std::ios::binary);
  std::filesystem::permissions(temporary, std::filesystem::perms(0600), error);  // only the owner may read it
  file << textOf(*configuration);
  file.close();
  if (file && !error) std::filesystem::rename(temporary, name, error);
  if (!file || error) {
    std::cerr << name << " cannot be written.\n";
    return false;
  }
  std::cerr << name << ": " << configuration->size() << " bytes\n";
  return true;
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
  if (argc != 4 || apiKey == nullptr || password == nullptr) {
    std::cerr << "usage: API_KEY=... PASSWORD=... fitting BASE-URL EMAIL AUDIOGRAMS\n";
    return 2;
  }
  // The library prints the body of every answer, including tokens, on standard output. Discard this output.
  if (std::freopen("/dev/null", "w", stdout) == nullptr) return 1;

  removeFiles();
  const auto audiograms = readAudiograms(argv[3]);
  if (!audiograms) {
    std::cerr << audiograms.error() << '\n';
    return 1;
  }
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
  return fit(service, argv[2], password, *audiograms).status.get();
}
