// Signs in with an e-mail address and a password, and prints the result.
//
//   API_KEY=... PASSWORD=... signin BASE-URL EMAIL
//
// Exit status: 0 signed in, 1 not signed in, 2 wrong usage.
#include <HalvernApi/HalvernApi.hpp>
#include <cstdio>
#include <cstdlib>
#include <iostream>

using namespace HalvernApi;

namespace {

// Returns a message for the user. error.description() is for developers.
std::string explain(const Error& error) {
  switch (error.kind()) {
    case Error::Case::network: return "The service cannot be reached. Check the connection and try again.";
    case Error::Case::validationError: return *error.validationMessage();  // the service's text for the user
    case Error::Case::notAuthorized: return "The service does not accept this application.";
    case Error::Case::unknownJsonData: return "The service has changed. Look for a newer version of this application.";
    case Error::Case::unknownNSError: return "The service cannot do this now. If this continues, contact our support.";
  }
  return {};
}

int fail(const std::string& words) {
  std::cerr << words << '\n';
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  const char* const apiKey = std::getenv("API_KEY");
  const char* const password = std::getenv("PASSWORD");
  if (argc != 3 || apiKey == nullptr || password == nullptr) {
    std::cerr << "usage: API_KEY=... PASSWORD=... signin BASE-URL EMAIL\n";
    return 2;
  }
  // The library prints the body of every answer, including tokens, on standard output. Discard this output.
  if (std::freopen("/dev/null", "w", stdout) == nullptr) return fail("There is no /dev/null.");
  const std::string baseUrl = argv[1], email = argv[2];

  // [signin]
  HttpApiService service(baseUrl, {}, apiKey);
  const auto account = service.login(email, password, "example-1", "Example").get();
  if (!account) return fail(explain(account.error()));
  if (!account->isSuccessful()) return fail("The service did not sign you in.");
  std::cerr << "Signed in as " << account->email() << '\n';
  // [signin]
}
