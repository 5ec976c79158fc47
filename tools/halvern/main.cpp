#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <boost/algorithm/string.hpp>
#include <iostream>
#include <numeric>

#include "Calls.hpp"
#include "Demo.hpp"
#include "Generate.hpp"
#include "SandboxCommand.hpp"
#include "Terminal.hpp"

namespace {

// The Levenshtein distance: how many letters must be inserted, removed or replaced to turn `word` into `name`.
std::size_t distance(const std::string& word, const std::string& name) {
  std::vector<std::size_t> costs(name.size() + 1);
  std::iota(costs.begin(), costs.end(), 0U);
  for (const char letter : word) {
    std::size_t diagonal = costs[0]++;
    for (std::size_t i = 0; i < name.size(); ++i)
      diagonal =
          std::exchange(costs[i + 1], std::min({costs[i] + 1, costs[i + 1] + 1, diagonal + (name[i] != letter)}));
  }
  return costs.back();
}

// Throws a Failure if there is no such subcommand. The message names a similar one if there is one.
void checkSubcommand(const std::string& word, const CLI::App& app) {
  std::vector<std::string> names{"help", "version"};
  for (const CLI::App* const command : app.get_subcommands({})) {
    if (command->get_name() == word) return;
    if (!command->get_group().empty()) names.push_back(command->get_name());  // the other subcommands are hidden
  }
  std::pair<std::size_t, std::string> best{word.size() / 2 + 1, ""};
  for (const std::string& name : names) best = std::min(best, {distance(boost::to_lower_copy(word), name), name});
  throw Failure(status::wrongUsage,
                "there is no subcommand " + word + (best.second.empty() ? "" : "; the nearest is " + best.second));
}

// The arguments of the command line. Replaces `help`, `help login` and `version` by the equivalent options.
std::vector<std::string> argumentsOf(int argc, char** argv) {
  std::vector<std::string> words(argv + 1, argv + argc);
  if (words.empty() || (words[0] != "help" && words[0] != "version")) return words;
  words.push_back("--" + words[0]);
  words.erase(words.begin());
  return words;
}

// Shows a positional argument by its name only, without type and default.
struct HelpFormatter : CLI::Formatter {
  std::string make_option_opts(const CLI::Option* option) const override {
    return option->get_positional() ? "" : CLI::Formatter::make_option_opts(option);
  }
};

int run(int argc, char** argv) try {
  CLI::App app("Calls the account and hearing-aid web service, or runs a sandbox of it.", "halvern");
  app.formatter(std::make_shared<HelpFormatter>());
  app.require_subcommand(1);
  app.footer("Example:\n  halvern demo\n  halvern help login\n\n" + std::string(status::help));
  app.set_version_flag("--version", "halvern " HALVERN_VERSION);
  int status = status::done;

  CLI::App* const demoCommand = app.add_subcommand("demo", "Shows all ten operations with one account");
  demoCommand->footer("Example:\n  halvern demo");
  demoCommand->callback([&] { status = demo(argv[0]) ? status::done : status::failed; });

  addSandbox(app);
  addCalls(app, status);

  CLI::App* const generator =
      app.add_subcommand("generate", "Prints a shell completion file or the manual page")->group("");
  const auto write = [&](const std::string& form) { std::cout << generate(app, form); };
  generator->add_option_function<std::string>("FORM", write)->check(CLI::IsMember({"bash", "zsh", "fish", "man"}));
  auto words = argumentsOf(argc, argv);
  if (!words.empty() && !words[0].starts_with('-')) checkSubcommand(words[0], app);
  try {
    std::reverse(words.begin(), words.end());  // CLI11 takes them in reverse order
    app.parse(words);
  } catch (const CLI::Success& success) {
    app.exit(success);
  } catch (const CLI::ParseError& error) {
    const auto chosen = app.get_subcommands();
    say(error.what() + std::string("; see halvern ") + (chosen.empty() ? "" : chosen[0]->get_name() + ' ') + "--help");
    return status::wrongUsage;
  }
  return status;
} catch (const Failure& failure) {
  say(failure.what());
  return failure.status;
} catch (const std::exception& error) {
  say(error.what());
  return status::failed;
}

}  // namespace

int main(int argc, char** argv) {
  // Opens every standard stream that is closed. Otherwise a socket could get the number of the stream and receive the
  // output.
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
    if (fcntl(stream, F_GETFD) == -1) open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY);
  (void)signal(SIGPIPE, SIG_IGN);
  const int status = run(argc, argv);
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return status;
  say("cannot write to standard output");
  return status == status::done ? status::notWritten : status;
}
