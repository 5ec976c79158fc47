// The subcommands of the program, and what is generated from their definitions. For one thread.
#pragma once

#include <CLI/App.hpp>
#include <string>

// Adds a subcommand for each operation, and one that only draws audiograms. The chosen subcommand runs while the
// command line is parsed, and stores its exit status in `status`.
void addCalls(CLI::App& app, int& status);

// Adds the subcommand that runs a sandbox of the service. It runs while the command line is parsed, and returns on
// SIGINT or SIGTERM.
void addSandbox(CLI::App& app);

// Runs command lines of the program, as a user would type them, against a sandbox in this process. `program` is the
// shell command for this program. Returns whether every step had the expected result.
bool demo(const std::string& program);

// A completion file or the manual page, from the definition of the command line. `form` is bash, zsh, fish or man.
std::string generate(const CLI::App& app, const std::string& form);
