#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <iostream>
#include <numeric>

#include "Calls.hpp"
#include "Demo.hpp"
#include "Generate.hpp"
#include "SandboxCommand.hpp"
#include "Terminal.hpp"

namespace {

// The subcommand nearest to `word`: the one for which the fewest letters have to be added, dropped or changed.
std::string nearest(const std::string& word, const CLI::App& app) {
  std::pair<std::size_t, std::string> best{word.size() + 100, ""};
  for (const CLI::App* const command : subcommands(app)) {
    const std::string name = command->get_name();
    std::vector<std::size_t> costs(name.size() + 1);
    std::iota(costs.begin(), costs.end(), 0U);
    for (const char letter : word) {
      std::size_t diagonal = costs[0]++;
      for (std::size_t i = 0; i < name.size(); ++i)
        diagonal =
            std::exchange(costs[i + 1], std::min({costs[i] + 1, costs[i + 1] + 1, diagonal + (name[i] != letter)}));
    }
    best = std::min(best, {costs.back(), name});
  }
  return best.second;
}

int run(int argc, char** argv) try {
  CLI::App app("Calls the account and hearing-aid web service, or plays it.", "halvern");
  app.require_subcommand(1);
  app.footer("Example:\n  halvern demo\n\n" + std::string(status::help));
  app.set_version_flag("--version", "halvern " HALVERN_VERSION);
  int status = status::done;

  CLI::App* const demoCommand = app.add_subcommand("demo", "Walks one account through all ten operations");
  demoCommand->footer("Example:\n  halvern demo");
  demoCommand->callback([&] { status = demo(argv[0]) ? status::done : status::failed; });

  addSandbox(app);
  addCalls(app, status);

  CLI::App* const generator = app.add_subcommand("generate", "Prints a completion file, or the manual page")->group("");
  const auto write = [&](const std::string& form) { std::cout << generate(app, form); };
  generator->add_option_function<std::string>("FORM", write)->check(CLI::IsMember({"bash", "zsh", "fish", "man"}));
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    const auto words = app.remaining();
    if (app.get_subcommands().empty() && !words.empty() && words[0][0] != '-') {
      say("there is no subcommand " + words[0] + "; the nearest is " + nearest(words[0], app));
      return status::wrongUsage;
    }
    return app.exit(error) == 0 ? status::done : status::wrongUsage;
  }
  return status;
} catch (const std::exception& error) {
  say(error.what());
  return dynamic_cast<const NotWritten*>(&error) != nullptr ? status::notWritten : status::failed;
}

}  // namespace

int main(int argc, char** argv) {
  // Where a standard stream is closed, nothing that is opened later may take its place: a socket would get the output.
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
    if (fcntl(stream, F_GETFD) == -1) open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY);
  (void)signal(SIGPIPE, SIG_IGN);
  const int status = run(argc, argv);
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return status;
  say("standard output cannot be written");
  return status == status::done ? status::notWritten : status;
}
