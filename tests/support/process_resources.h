// What a process holds of the system, for tests of leaks; each system has a source file of its own.
#pragma once

#include <cstddef>

namespace jorvet::testing {

std::ptrdiff_t threads_in_process();
std::ptrdiff_t handles_in_process(); // descriptors, or what the system has in their place

} // namespace jorvet::testing
