// The completion files and the manual page, from what the program knows of its own command line. For one thread.
#pragma once

#include <CLI/App.hpp>
#include <string>
#include <vector>

// The subcommands that are shown.
std::vector<const CLI::App*> subcommands(const CLI::App& app);

// `form` is bash, zsh, fish or man.
std::string generate(const CLI::App& app, const std::string& form);
