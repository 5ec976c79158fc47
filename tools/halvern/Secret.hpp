// Where passwords, tokens and keys come from other than the command line, where other users of the machine see them.
// For one thread.
#pragma once

#include <optional>
#include <string>

// The first line of a file.
std::string readSecret(const std::string& file);

// Asks on the terminal, without showing what is typed. Absent when standard input is not a terminal, or at its end.
std::optional<std::string> askSecret(const std::string& name);
