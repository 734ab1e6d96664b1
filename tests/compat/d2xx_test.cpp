// The D2XX functions over simulated bridges: what the library itself never does with them.
#include <future>
#include <new>

#include <gtest/gtest.h>

#include "jorvet/sim/bridge.h"
#include "jorvet/system/d2xx.h"

namespace jorvet::sim {
namespace {

// A bridge whose opening does what the test says; everything else succeeds at once.
class scripted_bridge final : public ports::bridge_port {
  public:
    std::function<void()> on_open = [] {};

    ports::bridge_identity identity() const override { return {"scripted", "", 0, 0, 0}; }
    ports::port_status open(std::function<void()>) override { return on_open(), ok; }
    void close() override {}
    ports::port_status set_baud_rate(std::uint32_t) override { return ok; }
    ports::port_status set_data_format(unsigned, unsigned, unsigned) override { return ok; }
    ports::port_status set_flow_control(unsigned, std::uint8_t, std::uint8_t) override { return ok; }
    ports::port_status set_latency_ms(unsigned) override { return ok; }
    ports::port_status set_transfer_sizes(std::uint32_t, std::uint32_t) override { return ok; }
    ports::port_status reset() override { return ok; }
    ports::port_status write(const std::uint8_t*, std::size_t, unsigned, std::size_t*) override { return ok; }
    ports::port_status received(std::size_t*) override { return ok; }
    ports::port_status read(std::uint8_t*, std::size_t, std::size_t*) override { return ok; }
    ports::port_status purge(bool, bool) override { return ok; }

  private:
    static constexpr ports::port_status ok = ports::port_status::ok;
};

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

TEST_F(D2xx, EndsABlockedTransferWithACloseOrAnUnplugging) {
    const auto read = [&] { return FT_Read(handle, buffer, 12, &count); };
    const auto write = [&] { return FT_Write(handle, buffer, 12, &count); };
    auto blocked = std::async(std::launch::async, read);
    second->board().send_raw({1, 2, 3, 4, 5, 6, 7, 8});
    second->board().send_raw({9, 10, 11, 12, 13});
    EXPECT_TRUE(blocked.get() == FT_OK && count == 12 && buffer[11] == 12 && buffer[12] == 0);
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

TEST_F(D2xx, OpensListsUsesAndClosesABridgeWhileAnotherHangsInItsOpening) {
    const auto slow = std::make_shared<scripted_bridge>();
    std::promise<void> begun, released;
    slow->on_open = [&] { begun.set_value(), released.get_future().wait(); };
    ports::attach(slow);
    FT_HANDLE slow_handle = nullptr, other = nullptr;
    auto opening = std::async(std::launch::async, [&] { return FT_Open(2, &slow_handle); });
    begun.get_future().wait();
    auto session = std::async(std::launch::async, [&] {
        EXPECT_EQ(FT_Open(2, &other), FT_DEVICE_NOT_OPENED);
        EXPECT_TRUE(FT_CreateDeviceInfoList(&count) == FT_OK && count == 3);
        EXPECT_TRUE(FT_Open(0, &other) == FT_OK && FT_ResetDevice(other) == FT_OK && FT_Close(other) == FT_OK);
    });
    EXPECT_EQ(session.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    released.set_value();
    EXPECT_TRUE(opening.get() == FT_OK && FT_Close(slow_handle) == FT_OK);
    ports::detach(slow);
}

TEST_F(D2xx, FreesABridgeWhoseOpeningRanOutOfMemory) {
    const auto poor = std::make_shared<scripted_bridge>();
    ports::attach(poor);
    poor->on_open = [] { throw std::bad_alloc(); };
    FT_HANDLE opened = nullptr;
    EXPECT_EQ(FT_Open(2, &opened), FT_INSUFFICIENT_RESOURCES);
    poor->on_open = [] {};
    EXPECT_TRUE(FT_Open(2, &opened) == FT_OK && FT_Close(opened) == FT_OK);
    ports::detach(poor);
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
