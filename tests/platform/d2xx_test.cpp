// The D2XX functions over bridges whose far end is the test.
#include "jorvet/platform/d2xx.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "tests/platform/fake_bridge.h"

using namespace jorvet::platform;

namespace {

class D2xx : public testing::Test {
  protected:
    D2xx() { attach(a_), attach(b_); }
    ~D2xx() override { FT_Close(handle_), detach(a_), detach(b_); }

    FT_HANDLE opened(int device = 0) {
        EXPECT_EQ(FT_Open(device, &handle_), FT_OK);
        return handle_;
    }
    FT_STATUS write(DWORD count) { return FT_Write(handle_, buffer_, count, &count_); }
    FT_STATUS read(DWORD count) { return FT_Read(handle_, buffer_, count, &count_); }
    // What a transfer says when `interrupt` happens while it is held up in the port.
    template <class Transfer, class Interrupt>
    FT_STATUS interrupted(Transfer transfer, Interrupt interrupt) {
        FT_STATUS status = 99;
        std::thread thread([&] { status = transfer(); });
        EXPECT_EQ(WaitForSingleObject(a_->held_up, 10000), WAIT_OBJECT_0);
        interrupt();
        thread.join();
        return status;
    }

    const std::shared_ptr<fake_bridge> a_ = std::make_shared<fake_bridge>("A"), b_ = std::make_shared<fake_bridge>("B");
    const HANDLE event_ = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    FT_HANDLE handle_ = nullptr;
    char buffer_[16] = {};
    DWORD count_ = 99;
};

TEST_F(D2xx, opens_a_bridge_by_position_for_one_opener_until_it_is_closed) {
    FT_HANDLE second = nullptr;
    EXPECT_EQ(FT_Open(2, &second), FT_DEVICE_NOT_FOUND);
    EXPECT_EQ(FT_Open(-1, &second), FT_DEVICE_NOT_FOUND);
    const FT_HANDLE first = opened(1);
    EXPECT_EQ(FT_Open(1, &second), FT_DEVICE_NOT_OPENED);
    EXPECT_EQ(FT_Close(first), FT_OK);
    EXPECT_EQ(FT_Close(first), FT_INVALID_HANDLE);
    b_->opening = PortStatus::refused;
    EXPECT_EQ(FT_Open(1, &second), FT_DEVICE_NOT_OPENED);
    EXPECT_EQ(second, nullptr);
    b_->opening = PortStatus::ok;
    EXPECT_NE(opened(1), first);
    EXPECT_EQ(FT_Purge(first, 3), FT_INVALID_HANDLE);
}

TEST_F(D2xx, keeps_its_stock_of_bridges_until_the_next_is_taken) {
    FT_DEVICE_LIST_INFO_NODE nodes[2];
    opened(1);
    EXPECT_TRUE(FT_CreateDeviceInfoList(&count_) == FT_OK && count_ == 2);
    detach(a_);
    EXPECT_TRUE(FT_GetDeviceInfoList(nodes, &count_) == FT_OK && count_ == 2);
    EXPECT_STREQ(nodes[0].SerialNumber, "A");
    EXPECT_TRUE(nodes[0].Flags == 0 && nodes[0].ftHandle == nullptr);
    EXPECT_STREQ(nodes[1].Description, "fake B");
    EXPECT_TRUE(nodes[1].Flags == FT_FLAGS_OPENED && nodes[1].ftHandle == handle_ && nodes[1].LocId == 0x21);
    EXPECT_TRUE(FT_CreateDeviceInfoList(&count_) == FT_OK && count_ == 1);
    EXPECT_TRUE(FT_GetDeviceInfoList(nodes, &count_) == FT_OK && count_ == 1);
    EXPECT_STREQ(nodes[0].SerialNumber, "B");
}

TEST_F(D2xx, refuses_settings_out_of_range) {
    const FT_HANDLE h = opened();
    EXPECT_EQ(FT_SetBaudRate(h, 299), FT_INVALID_BAUD_RATE);
    EXPECT_EQ(FT_SetBaudRate(h, 3000001), FT_INVALID_BAUD_RATE);
    for (const FT_STATUS status :
         {FT_Purge(h, 0), FT_Purge(h, 4), FT_SetUSBParameters(h, 65600, 64), FT_SetUSBParameters(h, 64, 65),
          FT_SetDataCharacteristics(h, 6, 0, 0), FT_SetDataCharacteristics(h, 8, 1, 0), FT_SetFlowControl(h, 1, 0, 0),
          FT_SetDataCharacteristics(h, 8, 0, 5), FT_SetLatencyTimer(h, 1), FT_SetEventNotification(h, 1, nullptr)})
        EXPECT_EQ(status, FT_INVALID_PARAMETER);
}

TEST_F(D2xx, signals_arrivals_also_those_inside_a_write_until_told_to_stop) {
    EXPECT_EQ(FT_SetEventNotification(opened(), FT_EVENT_RXCHAR, event_), FT_OK);
    a_->answer = "abc";
    EXPECT_TRUE(write(5) == FT_OK && count_ == 5);
    EXPECT_EQ(WaitForSingleObject(event_, 0), WAIT_OBJECT_0);
    EXPECT_EQ(FT_SetEventNotification(handle_, 0, nullptr), FT_OK);
    a_->arrive("de");
    EXPECT_EQ(WaitForSingleObject(event_, 0), WAIT_TIMEOUT);
    EXPECT_TRUE(FT_GetQueueStatus(handle_, &count_) == FT_OK && count_ == 5);
    EXPECT_EQ(read(5), FT_OK);
    EXPECT_STREQ(buffer_, "abcde");
}

TEST_F(D2xx, transfers_end_short_when_their_time_is_over_and_not_before) {
    EXPECT_EQ(FT_SetTimeouts(opened(), 20, 30), FT_OK);
    a_->arrive("abc");
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(read(5) == FT_OK && std::string(buffer_, count_) == "abc");
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(20));
    EXPECT_TRUE(write(12) == FT_OK && count_ == 9);
}

TEST_F(D2xx, a_blocked_transfer_ends_with_a_close_or_an_unplugging_and_a_read_with_its_last_byte) {
    const auto read_twelve = [&] { return read(12); };
    const auto write_twelve = [&] { return write(12); };
    const auto close = [&] { EXPECT_EQ(FT_Close(handle_), FT_OK); };
    const auto unplug = [&] { a_->go_away(); };
    opened();
    EXPECT_EQ(interrupted(read_twelve, [&] { a_->arrive("0123456789a"), a_->arrive("b"); }), FT_OK);
    EXPECT_STREQ(buffer_, "0123456789ab");
    WaitForSingleObject(a_->held_up, 0); // the read may have asked once more
    EXPECT_EQ(interrupted(read_twelve, close), FT_INVALID_HANDLE);
    EXPECT_EQ(FT_SetTimeouts(opened(), 0, 60000), FT_OK);
    EXPECT_EQ(interrupted(write_twelve, close), FT_INVALID_HANDLE);
    opened();
    EXPECT_EQ(interrupted(read_twelve, unplug), FT_IO_ERROR);
}

TEST_F(D2xx, a_bridge_that_is_gone_signals_and_leaves_nothing_but_closing) {
    const FT_HANDLE h = opened();
    EXPECT_EQ(FT_SetEventNotification(h, FT_EVENT_RXCHAR, event_), FT_OK);
    a_->go_away();
    EXPECT_EQ(WaitForSingleObject(event_, 0), WAIT_OBJECT_0);
    DWORD n = 99;
    for (const FT_STATUS status :
         {read(1), write(1), FT_ResetDevice(h), FT_SetBaudRate(h, 9600), FT_SetDataCharacteristics(h, 8, 0, 0),
          FT_SetFlowControl(h, 0, 0, 0), FT_Purge(h, 1), FT_SetTimeouts(h, 0, 0), FT_GetQueueStatus(h, &n),
          FT_SetEventNotification(h, 1, event_), FT_GetStatus(h, &n, &n, &n), FT_SetLatencyTimer(h, 2),
          FT_SetUSBParameters(h, 64, 64), FT_SetResetPipeRetryCount(h, 1)})
        EXPECT_EQ(status, FT_IO_ERROR);
    EXPECT_TRUE(n == 99 && count_ == 99);
    EXPECT_EQ(FT_Close(h), FT_OK);
}

} // namespace
