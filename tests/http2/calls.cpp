// calls URL AUTHORITY-FILE COUNT [PROXY-URL]: makes so many calls at once and prints what they came to, and how many of
// them did. Its exit status is 0 when all succeeded.
#include <iostream>
#include <map>

#include "Support.hpp"

using namespace HalvernApi;

int main(int count, char** arguments) {
  if (count < 4) return 2;
  URLSessionConfiguration configuration{.certificateAuthorityFile = arguments[2]};
  if (count > 4) configuration.proxyUrl = arguments[4];
  HttpApiService service(arguments[1], configuration, "key");
  std::vector<Promise<Unit, Error>> calls;
  for (int number = 0; number < std::stoi(arguments[3]); ++number)
    calls.push_back(service.resendValidationEmail("token"));
  std::map<std::string, int> outcomes;
  for (const auto& call : calls) ++outcomes[Tests::outcomeOf(call)];
  for (const auto& [outcome, times] : outcomes) std::cerr << times << " times " << outcome << '\n';
  return outcomes["success"] == static_cast<int>(calls.size()) ? 0 : 1;
}
