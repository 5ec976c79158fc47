#include "SandboxCommand.hpp"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <HalvernApi/Testing/Sandbox.hpp>
#include <iostream>
#include <memory>

#include "Chart.hpp"
#include "Terminal.hpp"

using HalvernApi::Testing::Sandbox;

namespace {

constexpr char opener[] = "xdg-open";

// The child does not inherit the signal mask, the ignored SIGPIPE, the process group and standard output.
void openInBrowser(std::string url) {
  sigset_t none, ignored;
  sigemptyset(&none);
  sigemptyset(&ignored);
  sigaddset(&ignored, SIGPIPE);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setsigdefault(&attributes, &ignored);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  std::string name = opener;
  char* const arguments[] = {name.data(), url.data(), nullptr};
  pid_t child = 0;
  const int failure = posix_spawnp(&child, opener, &actions, &attributes, arguments, environ);
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  if (failure != 0) say("cannot open the page: " + name + ": " + std::generic_category().message(failure));
}

void serve(Sandbox::Options options, bool opensPage) {
  // Blocks the signals before the sandbox starts its threads: the threads inherit the mask, so only sigwait receives
  // the signals.
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);

  options.page = true;
  options.chart = svgChart;
  options.mail = [](const std::string& email, const std::string& text) {
    std::cout << printable("E-mail to " + email + ": " + text) + '\n' << std::flush;
  };
  const Sandbox sandbox(options);
  const std::string page = sandbox.baseUrl() + '/';
  std::cout
      << "Base URL:  " << sandbox.baseUrl() << "\nAPI key:   " << sandbox.apiKey() << "\nPage:      " << page
      << "\nThe page shows calls and e-mails as they arrive, and can make calls fail. E-mails are also printed here:\n"
      << "open the link in an e-mail, with a browser or curl, to confirm the address.\n"
      << "The Facebook token sandbox-facebook-token signs in. Press Ctrl-C to stop.\n"
      << std::flush;
  if (opensPage) openInBrowser(page);
  int signal = 0;
  sigwait(&signals, &signal);
}

}  // namespace

void addSandbox(CLI::App& app) {
  const auto options = std::make_shared<Sandbox::Options>();
  const auto opensPage = std::make_shared<bool>(false);
  CLI::App* const command =
      app.add_subcommand("sandbox", "Runs a sandbox of the service on this machine until interrupted");
  command->add_option("--port", options->port, "The port to listen on; 0 selects a free port")
      ->check(CLI::Range(0, 65535))
      ->capture_default_str();
  command->add_option("--api-key", options->apiKey, "The API key that calls must send")->capture_default_str();
  command->add_flag("--open", *opensPage, "Opens the sandbox's page in the browser");
  command->footer("Example:\n  halvern sandbox --port 8080 --open");
  command->callback([options, opensPage] { serve(*options, *opensPage); });
}
