// Events and waits, as win32.h promises them, by whoever keeps the promise.
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "jorvet/system/win32.h"

namespace {

HANDLE new_event() {
    return CreateEventA(nullptr, FALSE, FALSE, "");
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

} // namespace
