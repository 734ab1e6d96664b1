// The life of an instance: connecting, disconnecting, losing the link and losing the stream.
#include <algorithm>
#include <future>

#include "tests/support/connected_board.h"
#include "tests/support/process_resources.h"

namespace jorvet::testing {
namespace {

using Lifecycle = ConnectedBoard;
using EachInstance = EachLink;
INSTANTIATE_TEST_SUITE_P(, EachInstance, ::testing::Values(Behind::bridge, Behind::high_speed_controller));

TEST(Instance, ConnectsAgainAndAgainAndDisconnectsHarmlessly) {
    plugged_board board;
    CJorvet jorvet(0);
    EXPECT_EQ(jorvet.disconnect(), JV_OK);
    EXPECT_EQ(jorvet.connect(1), 0x3010203Eu) << "no such place";
    for (unsigned round = 1; round <= 6; ++round) {
        ASSERT_EQ(jorvet.connect(0), JV_OK);
        EXPECT_TRUE(jorvet.is_open());
        EXPECT_TRUE(round % 2 == 0 || jorvet.rq_read_sn(1, false) == JV_OK); // or disconnect at once
        EXPECT_TRUE(jorvet.disconnect() == JV_OK && jorvet.disconnect() == JV_OK);
        EXPECT_FALSE(jorvet.is_open());
        EXPECT_EQ(board.bridge->opens(), round);
    }
}

TEST_F(Lifecycle, KeepsModeAndTimeoutsButNoCountsAndFramesOverAReconnect) {
    board->plan_next(reply(0xA000, "05"));
    ASSERT_EQ(jorvet.rq_get_mode(0, false), JV_OK);
    board.send("40 01 05 A000 0000");
    receive_reply();
    EXPECT_TRUE(jorvet.event_count() == 1 && jorvet.lost_events() == 4);
    set_timeouts(60);
    EXPECT_EQ(jorvet.disconnect(), JV_OK);
    EXPECT_TRUE(jorvet.read_reply_frames().empty() && jorvet.read_event_frames().empty());
    ASSERT_EQ(jorvet.connect(0), JV_OK);
    EXPECT_TRUE(jorvet.event_count() == 0 && jorvet.lost_events() == 0) << "at once";
    EXPECT_EQ(jorvet.mode(), 5);
    const steady::time_point start = steady::now();
    EXPECT_EQ(jorvet.wait_for_reply(), JV_ERR_REPLY_TIMEOUT);
    EXPECT_LT(milliseconds_since(start), 900) << "not the second of a new instance";
}

TEST_P(EachInstance, ConnectsAndDisconnectsWithoutWaitingOutItsTimeouts) {
    const auto connect_and_disconnect = [&] {
        EXPECT_EQ(jorvet.connect(0), JV_OK);
        board->send_event({});
        EXPECT_EQ(jorvet.wait_for_event(), JV_OK); // and the next receive wait begins
        EXPECT_EQ(jorvet.disconnect(), JV_OK);
    };
    jorvet.disconnect();
    EXPECT_LT(fastest_of(10, connect_and_disconnect), 25);
}

// A frame that nobody was told of would wait for the end of a receive wait, 30 ms after the frame before.
TEST_P(EachInstance, SeesFramesAsTheyCome) {
    const auto see_one = [&] {
        board->send_event({});
        EXPECT_EQ(jorvet.wait_for_event(), JV_OK);
        jorvet.read_event_frames();
    };
    see_one();
    EXPECT_LT(fastest_of(10, see_one), 15);
}

TEST_P(EachInstance, ConnectsAndEndsOnAThreadThatHasBeenInterrupted) {
    bool finished = false;
    boost::thread user([&] {
        while (!boost::this_thread::interruption_requested())
            boost::this_thread::yield();
        EXPECT_EQ(jorvet.disconnect(), JV_OK);
        CJorvet other(kind_of(GetParam()));
        EXPECT_TRUE(other.connect(0) == JV_OK && other.is_open());
        finished = true;
    });
    user.interrupt();
    user.join();
    EXPECT_TRUE(finished) << "an interruption came out";
}

TEST_F(Lifecycle, DisconnectsFirstWhenConnectedASecondTime) {
    receive_reply();
    expect_working_after_connect();
    EXPECT_EQ(board.bridge->opens(), 2u);
    EXPECT_TRUE(jorvet.read_reply_frames().empty());
}

TEST_F(Lifecycle, KnowsNoNetworkLinkAndPassesPurgesOn) {
    EXPECT_TRUE(jorvet.purge_rx() == 0 && jorvet.purge_tx() == 0);
    std::string address = "localhost";
    EXPECT_EQ(jorvet.connect(address, 80), 0x30100011u);
    jorvet.disconnect();
    EXPECT_TRUE(jorvet.purge_rx() == 1 && jorvet.purge_tx() == 1) << "the driver's own status";
}

TEST(Instance, SurvivesTheLossOfItsLinkAtAnyMoment) {
    void (*const losses[])(plugged_board&, CJorvet&) = {
        [](plugged_board& board, CJorvet&) { board.bridge->unplug(); },                           // idle
        [](plugged_board& board, CJorvet&) { board.send("80 A000 00"), board.bridge->unplug(); }, // in mid-frame
        [](plugged_board& board, CJorvet& jorvet) {                                               // in mid-request
            sim::reply_plan plan;
            plan.unplug_after = 3;
            board->plan_next(plan);
            EXPECT_EQ(jorvet.rq_read_error(1, false), JV_ERR_TIMEOUT_READ_ERROR);
        },
        [](plugged_board& board, CJorvet& jorvet) { // in mid-write
            board.bridge->stall_writes_after(3);
            board->unplug(milliseconds(20));
            const unsigned int status = jorvet.rq_read_sn(1, false);
            EXPECT_TRUE(status == 0x30102040 || status == 0x3010203D) << std::hex << status;
        }};
    const DWORD handles = handles_in_process();
    for (const auto lose : losses) {
        CJorvet jorvet(0);
        {
            plugged_board board;
            ASSERT_EQ(jorvet.connect(0), JV_OK);
            lose(board, jorvet);
            EXPECT_TRUE(eventually([&] { return !jorvet.is_open(); }, 1000));
            EXPECT_EQ(jorvet.rq_read_sn(1, false), JV_ERR_COM_NOT_OPEN);
            EXPECT_EQ(jorvet.disconnect(), JV_OK);
        }
        plugged_board another;
        ASSERT_EQ(jorvet.connect(0), JV_OK);
        EXPECT_EQ(jorvet.rq_read_sn(1, false), JV_OK);
    }
    EXPECT_EQ(handles_in_process(), handles);
}

TEST_F(Lifecycle, KeepsWhatCameBeforeTheLossOfItsLinkUntilItDisconnects) {
    receive_reply("80 A000 0001 0A");
    board.bridge->unplug();
    ASSERT_TRUE(eventually([&] { return !jorvet.is_open(); }));
    plugged_board another;
    ASSERT_EQ(jorvet.connect(0), JV_OK);
    EXPECT_EQ(jorvet.get_last_reply_frame()->data, byte_vector{0x0A});
}

TEST_F(Lifecycle, StopsReceivingWhereNoFrameIsFoundUntilTheNextConnect) {
    std::promise<std::string> report;
    hear([&](const std::string& text) { report.set_value(text); });
    board.send("00 AB");
    EXPECT_EQ(report.get_future().get().substr(0, 46), "Jorvet - Error - Context Loss Block Management");
    hear({});
    set_timeouts(30);
    EXPECT_TRUE(jorvet.is_open());
    EXPECT_EQ(jorvet.rq_read_sn(1, false), JV_ERR_TIMEOUT_READ_SN);
    EXPECT_EQ(jorvet.wait_for_reply(), JV_ERR_REPLY_TIMEOUT) << "nobody was waiting when it happened";
    EXPECT_EQ(jorvet.wait_for_event(), JV_ERR_EVENT_TIMEOUT);
    EXPECT_EQ(jorvet.disconnect(), JV_OK);
    expect_working_after_connect();
}

// The frame that ends the wait and the loss of the stream come in one piece: the waiter sees the loss unless it is
// quick to wake, hence the rounds.
TEST_F(Lifecycle, TellsThatReceivingStoppedToAWaitUnderWayAlone) {
    unsigned int status = JV_OK;
    for (int round = 0; round < 30 && status == JV_OK; ++round) {
        set_timeouts(10000);
        auto waiter = std::async(std::launch::async, [&] { return jorvet.wait_for_event(); });
        waiter.wait_for(milliseconds(20));
        board.send("40 01 00 A000 0000 FF FF");
        status = waiter.get();
        set_timeouts(0);
        EXPECT_EQ(jorvet.wait_for_event(), JV_ERR_EVENT_TIMEOUT);
        ASSERT_EQ(jorvet.connect(0), JV_OK);
    }
    EXPECT_EQ(status, 0x3010000Fu);
}

} // namespace
} // namespace jorvet::testing
