// One account's calls to a sandbox in this process, as the command lines that a user of the program would give. For one
// thread.
#pragma once

#include <string>

// `program` runs this program in a shell. True when every step came to what was expected.
bool demo(const std::string& program);
