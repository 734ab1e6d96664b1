// Faults: which calls fail, and that every function behind the two faces asks.
#include <gtest/gtest.h>

#include "jorvet/platform/d2xx.h"
#include "jorvet/platform/faults.h"

using namespace jorvet::platform;

namespace {

TEST(Faults, hit_the_nth_matching_call_once_or_from_then_on) {
    const struct {
        const char* function;
        unsigned nth;
        bool from_then_on;
        const char* pattern; // of the five calls below, x where one fails
        unsigned seen;
    } cases[] = {
        {"FT_Write", 1, false, "x....", 2}, {"FT_Write", 2, false, "....x", 2}, {"FT_Write", 1, true, "x...x", 2},
        {"FT_Write", 3, true, ".....", 2},  {"FT_*", 2, false, "..x..", 4},     {"FT_*", 2, true, "..xxx", 4},
        {"*", 2, true, ".xxxx", 5},         {"FT_", 1, true, ".....", 0},       {"SetEvent", 1, false, ".x...", 1}};
    for (const auto& c : cases) {
        const faults::Scope armed(c.function, c.nth, 99, c.from_then_on);
        std::string pattern;
        for (const char* call : {"FT_Write", "SetEvent", "FT_Read", "FT_WriteEE", "FT_Write"})
            pattern += faults::due(call) == 99u ? 'x' : '.';
        EXPECT_EQ(pattern, c.pattern) << c.function << c.nth;
        EXPECT_EQ(faults::calls_seen(), c.seen) << c.function << c.nth;
    }
    EXPECT_FALSE(faults::due("FT_Write"));
}

TEST(Faults, reach_every_function_of_both_faces) {
    const HANDLE event = CreateEventA(nullptr, TRUE, TRUE, nullptr);
    const faults::Scope armed("*", 1, 99, true);
    const auto error = [](bool failed) { return failed ? GetLastError() : ERROR_SUCCESS; };
    DWORD n = 0;
    FT_DEVICE_LIST_INFO_NODE node;
    for (const DWORD e :
         {error(!SetEvent(event)), error(!ResetEvent(event)), error(WaitForSingleObject(event, 0) == WAIT_FAILED),
          error(!CloseHandle(event)), error(!CreateEventA(nullptr, TRUE, TRUE, nullptr)),
          error(!SetThreadPriority(GetCurrentThread(), 0))})
        EXPECT_EQ(e, 99u);
    for (const FT_STATUS status :
         {FT_Open(0, nullptr), FT_Close(event), FT_Read(event, &n, 1, &n), FT_Write(event, &n, 1, &n),
          FT_ResetDevice(event), FT_SetBaudRate(event, 9600), FT_SetDataCharacteristics(event, 8, 0, 0),
          FT_SetFlowControl(event, 0, 0, 0), FT_Purge(event, 3), FT_SetTimeouts(event, 0, 0),
          FT_GetQueueStatus(event, &n), FT_SetEventNotification(event, 1, event), FT_GetStatus(event, &n, &n, &n),
          FT_SetLatencyTimer(event, 10), FT_SetUSBParameters(event, 64, 64), FT_SetResetPipeRetryCount(event, 1),
          FT_CreateDeviceInfoList(nullptr), FT_GetDeviceInfoList(&node, nullptr)})
        EXPECT_EQ(status, 99u);
    EXPECT_EQ(faults::calls_seen(), 24u);
}

} // namespace
