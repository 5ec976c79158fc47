// Runs command lines of the program against a sandbox in this process, as a user would type them. For one thread.
#pragma once

#include <string>

// `program` is the shell command for this program. Returns whether every step had the expected result.
bool demo(const std::string& program);
