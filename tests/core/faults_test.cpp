// Every call that an opening makes of the driver fails once; so do closing and receiving.
#include <algorithm>
#include <iterator>
#include <stdexcept>

#include "tests/support/connected_board.h"

namespace jorvet::testing {
namespace {

using Faults = ConnectedBoard;

// The driver calls of an opening, in order: which of its name, what it brings about at the bridge, and whether it is
// fatal when it fails.
const struct {
    const char* function;
    unsigned nth;
    const char* effect;
    bool fatal = true;
} opening[] = {{"FT_Open", 1, ""},
               {"FT_ResetDevice", 1, "reset, "},
               {"FT_Purge", 1, "purge tx, purge rx, "},
               {"FT_SetUSBParameters", 1, "transfers 8192 16384, "},
               {"FT_SetBaudRate", 1, "baud rate 115200, "},
               {"FT_SetTimeouts", 1, ""},
               {"FT_SetDataCharacteristics", 1, "format 8 1 0, "},
               {"FT_SetFlowControl", 1, "flow control 0 17 19, "},
               {"FT_Purge", 2, "purge tx, purge rx, "},
               {"FT_SetLatencyTimer", 1, "latency 10, "},
               {"FT_SetResetPipeRetryCount", 1, ""},
               {"FT_Purge", 3, "purge tx, ", false},
               {"FT_Purge", 4, "purge rx, ", false},
               {"FT_SetEventNotification", 1, ""},
               {"FT_GetQueueStatus", 1, "", false},
               {"FT_CreateDeviceInfoList", 1, "", false},
               {"FT_GetDeviceInfoList", 1, "", false}};

// Of a whole opening, or of one in which `failing` fails.
std::string effects(std::size_t failing = std::size(opening)) {
    std::string text;
    for (std::size_t i = 0; i < std::size(opening) && (i < failing || !opening[failing].fatal); ++i)
        text += i == failing ? "" : opening[i].effect;
    return text;
}

TEST(Opening, ReturnsTheMappedStatusOfEachDriverCallThatFails) {
    for (unsigned i = 0; i < std::size(opening); ++i) {
        SCOPED_TRACE(opening[i].function);
        plugged_board board;
        CJorvet jorvet(0);
        const auto connect = [&] { return jorvet.connect(0); };
        EXPECT_EQ(with_fault(opening[i].function, opening[i].nth, i + 1, connect),
                  opening[i].fatal ? 0x3010203D + i : 0u);
        EXPECT_EQ(board.bridge->calls(), effects(i));
        EXPECT_EQ(jorvet.is_open(), i > 0);
        EXPECT_TRUE(i % 2 == 1 || (jorvet.disconnect() == JV_OK && !jorvet.is_open())); // or connect at once
        EXPECT_EQ(connect(), JV_OK);
        EXPECT_EQ(jorvet.rq_read_sn(1, true), JV_OK);
        EXPECT_EQ(jorvet.disconnect(), JV_OK);
        EXPECT_EQ(board.bridge->calls(), effects() + "purge tx, purge rx, purge tx, purge rx, reset, closed, ");
    }
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
