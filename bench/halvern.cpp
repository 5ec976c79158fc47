// A client that uses HalvernApi like an application: each handler starts the next call. If IN-FLIGHT is 0, the calls
// are made one after the other with get().
#include <HalvernApi/HalvernApi.hpp>

#include <future>

#include "Measure.hpp"

int main(int argc, char** argv) {
  using namespace HalvernApi;
  const auto arguments = Bench::Arguments::read(argc, argv);
  Bench::Meter meter(arguments.calls);
  URLSessionConfiguration configuration;
  if (arguments.calls > 0) configuration.httpMaximumConnectionsPerHost = std::max(arguments.inFlight, 1);
  if (!arguments.certificateAuthority.empty()) configuration.certificateAuthorityFile = arguments.certificateAuthority;
  HttpApiService service(arguments.baseUrl, configuration, "sandbox-key");
  std::promise<void> done;
  const auto login = [&] { return service.login("somebody@example.com", "correct horse", "instance-1", "Phone"); };
  const std::function<void()> call = [&] {
    const auto started = meter.start();
    const auto ended = [&, started] {
      if (meter.end(started))
        done.set_value();
      else if (meter.more())
        call();
    };
    const auto failed = [&](const Error&) { meter.failed(); };
    if (arguments.isLogin) {
      login().then([ended](const AuthenticationResponse&) { ended(); }).trap(failed);
      return;
    }
    service.profile({}, "token")
        .then([&, ended](const ConfigurationResponse& answer) {
          if (!answer.leftData()) meter.failed();
          ended();
        })
        .trap(failed);
  };
  if (arguments.calls == 0) {
    std::vector<Promise<AuthenticationResponse, Error>> promises;
    promises.reserve(static_cast<std::size_t>(arguments.inFlight));
    const double memory = Bench::residentBytes();
    for (int i = 0; i < arguments.inFlight; ++i) promises.push_back(login());
    Bench::reportMemory(memory, arguments.inFlight, [] {});
    std::_Exit(0);
  }
  if (arguments.inFlight == 0) {
    while (meter.more()) {
      const auto started = meter.start();
      if (!login().get()) Bench::Meter::failed();
      meter.end(started);
    }
    meter.report();
    return 0;
  }
  // The calls are started in a handler, so that only the session's queue uses the meter.
  login().then([&](const auto&) {
    meter.answered();
    for (int i = 0; i < arguments.inFlight; ++i) call();
  });
  done.get_future().wait();
  meter.report();
}
