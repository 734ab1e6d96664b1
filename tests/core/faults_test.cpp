// Every call that an opening makes of the driver and the system fails once; so do closing and receiving.
#include <algorithm>

#include "jorvet/com/usb_ftd2xx_com.h"
#include "jorvet/platform/faults.h"
#include "tests/support/connected_board.h"

namespace jorvet::testing {
namespace {

using platform::faults::Scope;
using Faults = ConnectedBoard;

// The driver calls of an opening, in order; whether their status decides; and what they leave at the bridge.
struct driver_call {
    const char* function;
    bool examined;
    bool (*done)(const sim::BridgeSettings&) = nullptr;
};
const driver_call opening[] = {
    {"FT_Open", true, [](const sim::BridgeSettings& s) { return s.opens == 1; }},
    {"FT_ResetDevice", true, [](const sim::BridgeSettings& s) { return s.resets == 1; }},
    {"FT_Purge", true},
    {"FT_SetUSBParameters", true,
     [](const sim::BridgeSettings& s) { return s.in_transfer == 8192 && s.out_transfer == 16384; }},
    {"FT_SetBaudRate", true, [](const sim::BridgeSettings& s) { return s.baud_rate == 115200; }},
    {"FT_SetTimeouts", true},
    {"FT_SetDataCharacteristics", true,
     [](const sim::BridgeSettings& s) { return s.data_bits == 8 && s.stop_bits == 1 && s.parity == 0; }},
    {"FT_SetFlowControl", true,
     [](const sim::BridgeSettings& s) { return s.flow_control == 0 && s.xon == 0x11 && s.xoff == 0x13; }},
    {"FT_Purge", true},
    {"FT_SetLatencyTimer", true, [](const sim::BridgeSettings& s) { return s.latency_ms == 10; }},
    {"FT_SetResetPipeRetryCount", true},
    {"FT_Purge", false},
    {"FT_Purge", false},
    {"FT_SetEventNotification", true},
    {"FT_GetQueueStatus", false},
    {"FT_CreateDeviceInfoList", false},
    {"FT_GetDeviceInfoList", false},
};

void expect_recovery(CJorvet& jorvet, bool disconnect_first) {
    if (disconnect_first) {
        EXPECT_EQ(jorvet.disconnect(), JV_OK);
        EXPECT_FALSE(jorvet.is_open());
    }
    EXPECT_EQ(jorvet.connect(0), JV_OK);
    EXPECT_EQ(jorvet.rq_read_sn(1, true), JV_OK);
}

// The call fails as the nth of all calls and as the nth of its name: both must come to the same.
TEST(Opening, ReturnsTheMappedStatusOfEachDriverCallThatFails) {
    for (std::size_t i = 0; i < std::size(opening); ++i) {
        const unsigned error = 1 + static_cast<unsigned>(i) % 19;
        const auto same_name = [&](const driver_call& call) {
            return std::string(call.function) == opening[i].function;
        };
        const auto occurrence = std::count_if(opening, opening + i + 1, same_name);
        for (const bool by_name : {false, true}) {
            SCOPED_TRACE(opening[i].function);
            plugged_board board;
            CJorvet jorvet(0);
            {
                const Scope armed(by_name ? opening[i].function : "FT_*",
                                  static_cast<unsigned>(by_name ? occurrence : static_cast<long>(i) + 1), error);
                EXPECT_EQ(jorvet.connect(0), opening[i].examined ? 0x3010203C + error : 0u);
            }
            for (std::size_t k = 0; k < std::size(opening); ++k) {
                if (opening[k].done != nullptr) {
                    EXPECT_EQ(opening[k].done(board.bridge->settings()), k < i || !opening[i].examined) << k;
                }
            }
            EXPECT_EQ(jorvet.is_open(), i > 0);
            expect_recovery(jorvet, by_name);
        }
    }
}

TEST(Opening, MakesNoOtherDriverCalls) {
    plugged_board board;
    unsigned fewest = 1000; // on a slow machine the listening thread may already ask after the bridge
    for (int round = 0; round < 5; ++round) {
        CJorvet jorvet(0);
        const Scope armed("FT_*", 1000, 4);
        EXPECT_EQ(jorvet.connect(0), JV_OK);
        fewest = std::min(fewest, platform::faults::calls_seen());
    }
    EXPECT_EQ(fewest, std::size(opening));
}

TEST(Opening, ThrowsWithoutAnEventObjectAndRecovers) {
    plugged_board board;
    for (const bool disconnect_first : {false, true}) {
        CJorvet jorvet(0);
        {
            const Scope armed("CreateEventA", 1, ERROR_NOT_ENOUGH_MEMORY);
            EXPECT_THROW(jorvet.connect(0), boost::thread_resource_error);
        }
        EXPECT_TRUE(jorvet.is_open());
        expect_recovery(jorvet, disconnect_first);
    }
}

TEST_F(Faults, OfClosingAreReturnedAndLeaveTheDeviceOpenButSilent) {
    receive_reply("80 A000 0000");
    {
        const Scope armed("FT_Close", 1, 18);
        EXPECT_EQ(jorvet.disconnect(), 0x3010204Eu);
    }
    EXPECT_TRUE(jorvet.is_open());
    EXPECT_TRUE(jorvet.read_reply_frames().empty());
    jorvet.set_timeout_for_reply(30);
    EXPECT_EQ(jorvet.rq_read_sn(1, false), JV_ERR_TIMEOUT_READ_SN);
    EXPECT_EQ(jorvet.disconnect(), JV_OK);
    EXPECT_FALSE(jorvet.is_open());
    EXPECT_EQ(jorvet.connect(0), JV_OK);
    expect_working();
}

TEST_F(Faults, OfReceivingCloseTheLink) {
    for (const char* function : {"FT_Read", "FT_GetStatus"}) {
        SCOPED_TRACE(function);
        {
            const Scope armed(function, 1, 4);
            board->send_event({});
            EXPECT_TRUE(eventually([&] { return !jorvet.is_open(); }));
        }
        EXPECT_EQ(jorvet.rq_read_sn(1, false), JV_ERR_COM_NOT_OPEN);
        EXPECT_EQ(jorvet.get_com()->close(), JV_ERR_COM_NOT_OPEN);
        EXPECT_EQ(jorvet.connect(0), JV_OK);
        expect_working();
    }
}

TEST(Ftd2xxStatuses, MapAsTheDriverNumbersThem) {
    plugged_board board;
    CUsbFtd2xxCom com;
    com.load();
    com.load();
    ASSERT_EQ(com.open_by_index(0), JV_OK);
    for (unsigned status = 1; status <= 19; ++status) {
        const Scope armed("FT_Write", 1, status);
        EXPECT_EQ(com.write(&status, 1), 0x3010203D + (status - 1));
    }
    for (const unsigned unknown : {20u, 0x7777u, 0x10000u}) {
        const Scope armed("FT_Write", 1, unknown);
        unsigned char byte = 0;
        EXPECT_EQ(com.write(&byte, 1), 0u) << "a status that the table lacks counts as success";
    }
    const Scope armed("FT_Purge", 1, 4, true);
    EXPECT_EQ(com.purge_rx(), 4u) << "as it comes";
    EXPECT_EQ(com.purge_tx(), 4u);
}

} // namespace
} // namespace jorvet::testing
