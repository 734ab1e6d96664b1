// What a process holds of the system, for tests of leaks.
#pragma once

#include <cstddef>

#include <gtest/gtest.h>

#include "jorvet/system/win32.h"

namespace jorvet::testing {

std::ptrdiff_t threads_in_process(); // each system has a source file of its own

inline DWORD handles_in_process() {
    DWORD count = 0;
    EXPECT_TRUE(GetProcessHandleCount(GetCurrentProcess(), &count));
    return count;
}

} // namespace jorvet::testing
