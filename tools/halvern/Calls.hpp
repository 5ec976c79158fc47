// The subcommands that each make one call to the service. For one thread.
#pragma once

#include <CLI/App.hpp>

// Adds a subcommand for each operation, and one that only draws audiograms. The chosen subcommand runs while the
// command line is parsed, and stores its exit status in `status`.
void addCalls(CLI::App& app, int& status);
