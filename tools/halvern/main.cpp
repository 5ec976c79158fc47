#include <signal.h>

#include <CLI/CLI.hpp>
#include <HalvernApi/Testing/Sandbox.hpp>
#include <iostream>

#include "Calls.hpp"
#include "Demo.hpp"

using HalvernApi::Testing::Sandbox;

namespace {

void serve(Sandbox::Options options) {
  // Blocked before the sandbox makes its threads, so that they all leave the signals to sigwait.
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);

  options.mail = [](const std::string& email, const std::string& text) {
    std::cout << "E-mail to " + email + ": " + text + '\n' << std::flush;
  };
  const Sandbox sandbox(options);
  std::cout << "Base URL:  " << sandbox.baseUrl() << "\nAPI key:   " << sandbox.apiKey()
            << "\nE-mails to users are shown here. Open the link in one (curl will do) to confirm the address.\n"
            << "The Facebook token sandbox-facebook-token signs in. Ctrl-C ends.\n"
            << std::flush;
  int signal = 0;
  sigwait(&signals, &signal);
}

}  // namespace

// Exit status: 0 when all went well, 1 when a call failed, 2 when it was asked wrongly.
int main(int argc, char** argv) try {
  CLI::App app("Calls the account and hearing-aid web service, or plays it.", "halvern");
  app.require_subcommand(1);
  app.footer("Example:\n  halvern demo");
  int status = 0;

  CLI::App* const demoCommand = app.add_subcommand("demo", "Walks one account through all ten operations");
  demoCommand->footer("Example:\n  halvern demo");
  demoCommand->callback([&] { status = demo() ? 0 : 1; });

  Sandbox::Options options;
  CLI::App* const sandboxCommand = app.add_subcommand("sandbox", "Plays the service on this machine until interrupted");
  sandboxCommand->add_option("--port", options.port, "Where to listen; 0 takes a free port")
      ->check(CLI::Range(0, 65535))
      ->capture_default_str();
  sandboxCommand->add_option("--api-key", options.apiKey, "The key that calls must bring")->capture_default_str();
  sandboxCommand->footer("Example:\n  halvern sandbox --port 8080");
  sandboxCommand->callback([&] { serve(options); });

  addCalls(app, status);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  }
  return status;
} catch (const std::exception& error) {
  std::cerr << "halvern: " << error.what() << '\n';
  return 1;
}
