// The subcommand that runs a sandbox of the service. For one thread.
#pragma once

#include <CLI/App.hpp>

// Adds the subcommand. It runs while the command line is parsed, and returns on SIGINT or SIGTERM.
void addSandbox(CLI::App& app);
