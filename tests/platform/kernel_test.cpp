// Events, waits, handles and last error, as win32.h promises them.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <vector>

#include "jorvet/platform/kernel/objects.h"

using namespace jorvet::platform;

namespace {

HANDLE new_event(BOOL manual_reset = FALSE, BOOL signalled = FALSE) {
    return CreateEventA(nullptr, manual_reset, signalled, "");
}

TEST(Event, each_signal_of_an_auto_reset_event_releases_one_of_several_waiters) {
    const HANDLE event = new_event(), released = new_event();
    std::vector<std::thread> waiters;
    for (int i = 0; i < 3; ++i)
        waiters.emplace_back([&] { EXPECT_TRUE(WaitForSingleObject(event, INFINITE) == 0 && SetEvent(released)); });
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(WaitForSingleObject(released, 10), WAIT_TIMEOUT);
        EXPECT_TRUE(SetEvent(event));
        EXPECT_EQ(WaitForSingleObject(released, INFINITE), WAIT_OBJECT_0);
    }
    for (auto& waiter : waiters)
        waiter.join();
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_TIMEOUT);
}

TEST(Wait, does_not_time_out_early) {
    for (const DWORD milliseconds : {0u, 1u, 7u, 30u}) {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(WaitForSingleObject(new_event(), milliseconds), WAIT_TIMEOUT);
        const auto passed = std::chrono::steady_clock::now() - start;
        EXPECT_TRUE(passed >= std::chrono::milliseconds(milliseconds) && passed < std::chrono::seconds(5));
    }
}

TEST(Wait, survives_the_closing_of_the_handle) {
    const HANDLE event = new_event();
    const std::weak_ptr<kernel::object> object = kernel::handles().find(event);
    std::thread waiter([&] { EXPECT_EQ(WaitForSingleObject(event, 50), WAIT_TIMEOUT); });
    while (object.use_count() == 1) // only the table's: the waiter is not inside yet
        std::this_thread::yield();
    EXPECT_TRUE(CloseHandle(event));
    waiter.join();
    EXPECT_TRUE(object.expired());
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
