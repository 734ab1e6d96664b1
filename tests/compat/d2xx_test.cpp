// The D2XX functions over simulated bridges: what the library itself never does with them.
#include <future>

#include <gtest/gtest.h>

#include "jorvet/sim/bridge.h"
#include "jorvet/system/d2xx.h"

namespace jorvet::sim {
namespace {

class D2xx : public ::testing::Test {
  protected:
    D2xx() { EXPECT_EQ(FT_Open(1, &handle), FT_OK); }
    ~D2xx() override {
        FT_Close(handle);
        for (const auto& bridge : {first, second})
            bridge->unplug();
    }

    std::shared_ptr<simulated_bridge> first = simulated_bridge::plug_in({"A"}),
                                      second = simulated_bridge::plug_in({"B"});
    FT_HANDLE handle = nullptr;
    char buffer[16] = {};
    DWORD count = 99;
};

TEST_F(D2xx, KeepsItsStockOfBridgesUntilTheNextIsTaken) {
    FT_DEVICE_LIST_INFO_NODE nodes[2];
    EXPECT_TRUE(FT_CreateDeviceInfoList(&count) == FT_OK && count == 2);
    first->unplug();
    EXPECT_TRUE(FT_GetDeviceInfoList(nodes, &count) == FT_OK && count == 2);
    EXPECT_STREQ(nodes[0].SerialNumber, "A");
    EXPECT_TRUE(nodes[1].Flags == FT_FLAGS_OPENED && nodes[1].ftHandle == handle && nodes[1].LocId == 0x11);
    EXPECT_TRUE(FT_CreateDeviceInfoList(&count) == FT_OK && count == 1);
}

TEST_F(D2xx, EndsABlockedTransferWithACloseOrAnUnplugging) {
    const auto read = [&] { return FT_Read(handle, buffer, 12, &count); };
    const auto write = [&] { return FT_Write(handle, buffer, 12, &count); };
    auto blocked = std::async(std::launch::async, read);
    second->board().send_raw({1, 2, 3, 4, 5, 6, 7, 8});
    second->board().send_raw({9, 10, 11, 12});
    EXPECT_TRUE(blocked.get() == FT_OK && count == 12 && buffer[11] == 12);
    second->stall_writes_after(5);
    for (const bool reading : {true, false}) {
        blocked = reading ? std::async(std::launch::async, read) : std::async(std::launch::async, write);
        EXPECT_EQ(FT_Close(handle), FT_OK);
        EXPECT_EQ(blocked.get(), FT_INVALID_HANDLE);
        ASSERT_EQ(FT_Open(1, &handle), FT_OK);
    }
    blocked = std::async(std::launch::async, read);
    second->unplug();
    EXPECT_EQ(blocked.get(), FT_IO_ERROR);
}

TEST_F(D2xx, SignalsABridgeThatIsGoneAndLeavesNothingButClosing) {
    const HANDLE event = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    EXPECT_EQ(FT_SetEventNotification(handle, FT_EVENT_RXCHAR, event), FT_OK);
    second->unplug();
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_OBJECT_0);
    DWORD n = 99;
    for (const FT_STATUS status :
         {FT_Read(handle, buffer, 1, &n), FT_Write(handle, buffer, 1, &n), FT_ResetDevice(handle),
          FT_SetBaudRate(handle, 9600), FT_SetDataCharacteristics(handle, 8, 0, 0), FT_SetFlowControl(handle, 0, 0, 0),
          FT_Purge(handle, 1), FT_SetTimeouts(handle, 0, 0), FT_GetQueueStatus(handle, &n),
          FT_SetEventNotification(handle, 1, event), FT_GetStatus(handle, &n, &n, &n), FT_SetLatencyTimer(handle, 2),
          FT_SetUSBParameters(handle, 64, 64), FT_SetResetPipeRetryCount(handle, 1)})
        EXPECT_EQ(status, FT_IO_ERROR);
    EXPECT_EQ(n, 99u);
    EXPECT_EQ(FT_Close(handle), FT_OK);
    EXPECT_EQ(FT_Close(handle), FT_INVALID_HANDLE);
    CloseHandle(event);
}

} // namespace
} // namespace jorvet::sim
