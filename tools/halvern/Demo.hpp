// The life of one account against a sandbox in this process, for reading along. For one thread.
#pragma once

// True when every step came to what was expected.
bool demo();
