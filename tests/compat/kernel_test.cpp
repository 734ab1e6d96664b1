// Handles of kernel objects of our own: what the system guards itself against where it is Windows.
#include <gtest/gtest.h>

#include "jorvet/system/win32.h"

namespace {

HANDLE new_event() {
    return CreateEventA(nullptr, FALSE, FALSE, "");
}

TEST(Handle, that_is_not_open_is_invalid_everywhere_also_after_a_later_event_was_made) {
    const HANDLE closed = new_event();
    EXPECT_TRUE(CloseHandle(closed) && new_event() != closed);
    const auto refused = [](bool failed) { return failed && GetLastError() == ERROR_INVALID_HANDLE; };
    for (const HANDLE handle : {HANDLE{}, INVALID_HANDLE_VALUE, GetCurrentThread(), closed}) {
        EXPECT_TRUE(refused(!SetEvent(handle)));
        EXPECT_TRUE(refused(!ResetEvent(handle)));
        EXPECT_TRUE(refused(!CloseHandle(handle)));
        EXPECT_TRUE(refused(WaitForSingleObject(handle, INFINITE) == WAIT_FAILED));
    }
}

} // namespace
