// Generates completion files and the manual page from the definition of the command line. For one thread.
#pragma once

#include <CLI/App.hpp>
#include <string>
#include <vector>

// The subcommands that the help shows.
std::vector<const CLI::App*> subcommands(const CLI::App& app);

// `form` is bash, zsh, fish or man.
std::string generate(const CLI::App& app, const std::string& form);
