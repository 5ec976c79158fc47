// The subcommands that make one call of the service each, as a table. For one thread.
#pragma once

#include <CLI/App.hpp>

// Adds a subcommand for each operation, and one that only draws audiograms. Whichever is chosen puts its exit status
// into `status` while the command line is parsed.
void addCalls(CLI::App& app, int& status);
