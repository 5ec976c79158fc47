// The subcommand that plays the service. For one thread.
#pragma once

#include <CLI/App.hpp>

// Adds the subcommand. It serves, while the command line is parsed, until SIGINT or SIGTERM arrives.
void addSandbox(CLI::App& app);
