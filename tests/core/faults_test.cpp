// Every call that an opening makes of the driver fails once; so do closing and receiving.
#include <algorithm>
#include <iterator>
#include <stdexcept>

#include "tests/support/connected_board.h"

namespace jorvet::testing {
namespace {

using Faults = ConnectedBoard;

// The driver calls of an opening, in order: which of its name, and how many of the settings below are in place before.
const struct {
    const char* function;
    unsigned nth;
    int settings;
    bool examined = true;
} opening[] = {{"FT_Open", 1, 0},
               {"FT_ResetDevice", 1, 1},
               {"FT_Purge", 1, 2},
               {"FT_SetUSBParameters", 1, 2},
               {"FT_SetBaudRate", 1, 3},
               {"FT_SetTimeouts", 1, 4},
               {"FT_SetDataCharacteristics", 1, 4},
               {"FT_SetFlowControl", 1, 5},
               {"FT_Purge", 2, 6},
               {"FT_SetLatencyTimer", 1, 6},
               {"FT_SetResetPipeRetryCount", 1, 7},
               {"FT_Purge", 3, 7, false},
               {"FT_Purge", 4, 7, false},
               {"FT_SetEventNotification", 1, 7},
               {"FT_GetQueueStatus", 1, 7, false},
               {"FT_CreateDeviceInfoList", 1, 7, false},
               {"FT_GetDeviceInfoList", 1, 7, false}};

long settings_in_place(const sim::bridge_settings& s) {
    const bool in_place[] = {s.opens == 1,
                             s.resets == 1,
                             s.in_transfer == 8192 && s.out_transfer == 16384,
                             s.baud_rate == 115200,
                             s.data_bits == 8 && s.stop_bits == 1 && s.parity == 0,
                             s.flow_control == 0 && s.xon == 0x11 && s.xoff == 0x13,
                             s.latency_ms == 10};
    return std::count(std::begin(in_place), std::end(in_place), true);
}

TEST(Opening, ReturnsTheMappedStatusOfEachDriverCallThatFails) {
    unsigned error = 0;
    for (const auto& call : opening) {
        SCOPED_TRACE(call.function);
        plugged_board board;
        CJorvet jorvet(0);
        const unsigned int status = with_fault(call.function, call.nth, ++error, [&] { return jorvet.connect(0); });
        EXPECT_EQ(status, call.examined ? 0x3010203C + error : 0u);
        EXPECT_EQ(settings_in_place(board.bridge->settings()), call.settings);
        EXPECT_EQ(jorvet.is_open(), error > 1);
        EXPECT_TRUE(error % 2 == 0 || (jorvet.disconnect() == JV_OK && !jorvet.is_open())); // or connect at once
        EXPECT_EQ(jorvet.connect(0), JV_OK);
        EXPECT_EQ(jorvet.rq_read_sn(1, true), JV_OK);
    }
}

TEST(Opening, MakesNoOtherDriverCalls) {
    plugged_board board;
    unsigned fewest = 1000; // on a slow machine the listening thread may already ask after the bridge
    for (int round = 0; round < 5; ++round) {
        CJorvet jorvet(0);
        const compat::faults::scope armed("FT_*", 1000, 4);
        EXPECT_EQ(jorvet.connect(0), JV_OK);
        fewest = std::min(fewest, compat::faults::calls_seen());
    }
    EXPECT_EQ(fewest, std::size(opening));
}

TEST_F(Faults, OfClosingAreReturnedAndLeaveTheDeviceOpenButSilent) {
    receive_reply();
    EXPECT_EQ(with_fault("FT_Close", 1, 18, [&] { return jorvet.disconnect(); }), 0x3010204Eu);
    EXPECT_TRUE(jorvet.is_open() && jorvet.read_reply_frames().empty());
    set_timeouts(30);
    EXPECT_EQ(jorvet.rq_read_sn(1, false), JV_ERR_TIMEOUT_READ_SN);
    EXPECT_EQ(jorvet.disconnect(), JV_OK);
    expect_working_after_connect();
}

TEST_F(Faults, OfReceivingCloseTheLink) {
    for (const char* function : {"FT_Read", "FT_GetStatus"}) {
        EXPECT_TRUE(with_fault(function, 1, 4, [&] {
            board->send_event({});
            return eventually([&] { return !jorvet.is_open(); });
        })) << function;
        EXPECT_EQ(jorvet.rq_read_sn(1, false), JV_ERR_COM_NOT_OPEN);
        EXPECT_EQ(jorvet.get_com()->close(), JV_ERR_COM_NOT_OPEN);
        expect_working_after_connect();
    }
}

using BackgroundThread = EachLink;

TEST_P(BackgroundThread, ThatFailsEndsReceivingAndAnFtdiLinkUntilTheNextConnect) {
    diagnostics::set_writer([](const std::string&) { throw std::runtime_error("of the writer"); });
    board.send("00 00"); // lost: the report of it throws
    EXPECT_EQ(eventually([&] { return !jorvet.is_open(); }, 300), GetParam() == Behind::bridge);
    diagnostics::set_writer(nullptr);
    set_timeouts(30);
    board.send("80 A000 0000");
    EXPECT_EQ(jorvet.wait_for_reply(), JV_ERR_REPLY_TIMEOUT);
    expect_working_after_connect();
    EXPECT_EQ(jorvet.disconnect(), JV_OK);
}

INSTANTIATE_TEST_SUITE_P(, BackgroundThread,
                         ::testing::Values(Behind::bridge, Behind::high_speed_controller,
                                           Behind::super_speed_controller));

} // namespace
} // namespace jorvet::testing
