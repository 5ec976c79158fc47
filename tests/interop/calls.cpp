// calls URL AUTHORITY-FILE COUNT IN-FLIGHT BODY-BYTES [PROXY-URL]: makes COUNT calls, IN-FLIGHT at a time, each to its
// own URL, "URL?call=NUMBER". Prints on standard error a line "NUMBER OUTCOME" for each call, and the CPU time of the
// process as "cpu SECONDS".
#include <ctime>
#include <iostream>
#include <sstream>

#include "Support.hpp"

using namespace HalvernApi;

int main(int count, char** arguments) {
  if (count < 6) return 2;
  const std::string url = arguments[1], text(std::stoul(arguments[5]), 'x');
  const int calls = std::stoi(arguments[3]), inFlight = std::stoi(arguments[4]);
  URLSessionConfiguration configuration{.timeoutIntervalForRequest = std::chrono::seconds(10),
                                        .httpMaximumConnectionsPerHost = inFlight,
                                        .certificateAuthorityFile = arguments[2]};
  if (count > 6) configuration.proxyUrl = arguments[6];
  SessionManager session(configuration);
  std::atomic<int> next = 0;
  std::vector<std::ostringstream> outputs(static_cast<std::size_t>(inFlight));
  std::vector<std::jthread> callers;
  for (std::ostringstream& output : outputs)
    callers.emplace_back([&] {
      for (int number = next++; number < calls; number = next++)
        output << number << ' ' << Tests::outcomeOf(Tests::call(session, url + "?call=" + std::to_string(number), text))
               << '\n';
    });
  callers.clear();
  for (const std::ostringstream& output : outputs) std::cerr << output.str();
  std::cerr << "cpu " << static_cast<double>(std::clock()) / CLOCKS_PER_SEC << '\n';
}
