// An application. Signs in to a service. Arguments: base URL, API key and, optionally, the URL of a proxy.
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
  // Decodes the record again, so that the application itself uses templates and the JSON library.
  const auto copy = HalvernApi::AuthenticationResponse::decodeJson(answer->encodeJson());
  return copy == *answer && copy->email() == "ada@example.com" ? 0 : 1;
}
