// service PROGRAM [ARGUMENT...]: runs the program with the base URL and the API key of an embedded service as
// additional arguments. Succeeds if the program has signed in.
#include <HalvernApi/Testing/Sandbox.hpp>
#include <cstdlib>

int main(int argc, char** argv) {
  using namespace HalvernApi::Testing;
  Sandbox server;
  server.addAccount("ada@example.com", "correct horse");
  std::string command;
  for (int i = 1; i < argc; ++i) command += std::string(argv[i]) + ' ';
  const int status = std::system((command + server.baseUrl() + ' ' + server.apiKey()).c_str());
  return status == 0 && server.seen(Operation::login).size() == 1 ? 0 : 1;
}
