// Counts what operator new is asked for, in the program that links this and in the libraries that it loads.
#pragma once

#include <cstddef>

namespace bench {

// Since the program began; of one thread.
std::size_t allocations();

} // namespace bench
