// An application: signs in to the service at the base URL and with the API key of its arguments, through the proxy that
// may follow.
#include <HalvernApi/HalvernApi.hpp>
#include <iostream>

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  HalvernApi::URLSessionConfiguration configuration;
  if (argc > 3) configuration.proxyUrl = argv[3];
  HalvernApi::HttpApiService service(argv[1], configuration, argv[2]);
  const auto answer = service.login("ada@example.com", "correct horse", "consumer-1", "Consumer").get();
  if (!answer) {
    std::cerr << answer.error() << '\n';
    return 1;
  }
  // Reading the record once more takes templates and the JSON library into the application.
  const auto copy = HalvernApi::AuthenticationResponse::decodeJson(answer->encodeJson());
  return copy == *answer && copy->email() == "ada@example.com" ? 0 : 1;
}
