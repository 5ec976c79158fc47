// Generates completion files and the manual page from the definition of the command line. For one thread.
#pragma once

#include <CLI/App.hpp>
#include <string>

// `form` is bash, zsh, fish or man.
std::string generate(const CLI::App& app, const std::string& form);
