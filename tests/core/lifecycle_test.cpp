// The life of an instance: connecting, disconnecting, losing the link and losing the stream.
#include <future>

#include "tests/support/connected_board.h"

namespace jorvet::testing {
namespace {

using Lifecycle = ConnectedBoard;

TEST(Instance, WithoutALinkRefusesToConnect) {
    for (const unsigned kind : {2u, 5u, 7u, 0xFFFFFFFFu}) {
        CJorvet jorvet(kind);
        std::string address = "localhost";
        EXPECT_EQ(jorvet.connect(0), 0x30100001u);
        EXPECT_EQ(jorvet.connect(address, 80), 0x30100001u);
        EXPECT_EQ(jorvet.disconnect(), JV_OK);
        EXPECT_EQ(jorvet.purge_rx(), 0x30100001u);
        EXPECT_EQ(jorvet.purge_tx(), 0x30100001u);
        EXPECT_EQ(jorvet.rq_read_sn(1, false), 0x30100001u);
        EXPECT_FALSE(jorvet.is_open());
        EXPECT_EQ(jorvet.get_com(), nullptr);
    }
}

TEST(Instance, ConnectsAgainAndAgainAndDisconnectsHarmlessly) {
    plugged_board board;
    CJorvet jorvet(0);
    EXPECT_EQ(jorvet.disconnect(), JV_OK);
    EXPECT_EQ(jorvet.connect(1), 0x3010203Eu) << "no such place";
    EXPECT_FALSE(jorvet.is_open());
    for (int round = 0; round < 3; ++round) {
        ASSERT_EQ(jorvet.connect(0), JV_OK);
        EXPECT_TRUE(jorvet.is_open());
        EXPECT_EQ(jorvet.rq_read_sn(1, false), JV_OK);
        EXPECT_EQ(jorvet.disconnect(), JV_OK);
        EXPECT_FALSE(jorvet.is_open());
        EXPECT_EQ(jorvet.disconnect(), JV_OK);
    }
    EXPECT_EQ(board.bridge->settings().opens, 3u);
}

TEST_F(Lifecycle, DisconnectsRightAfterConnectingAndEmptiesTheQueues) {
    board->send_event({});
    ASSERT_EQ(jorvet.wait_for_event(), JV_OK);
    receive_reply("80 A000 0000");
    EXPECT_EQ(jorvet.disconnect(), JV_OK);
    EXPECT_TRUE(jorvet.read_event_frames().empty());
    EXPECT_TRUE(jorvet.read_reply_frames().empty());
    for (int round = 0; round < 5; ++round) {
        EXPECT_EQ(jorvet.connect(0), JV_OK);
        EXPECT_EQ(jorvet.disconnect(), JV_OK);
    }
}

TEST_F(Lifecycle, KeepsModeAndTimeoutsButNoCountsOverAReconnect) {
    board->plan_next(reply(0xA000, "05"));
    ASSERT_EQ(jorvet.rq_get_mode(0, false), JV_OK);
    board->lose_events(3);
    board->send_event({});
    ASSERT_EQ(jorvet.wait_for_event(), JV_OK);
    EXPECT_EQ(jorvet.event_count(), 1u);
    EXPECT_EQ(jorvet.lost_events(), 3u);
    jorvet.set_timeout_for_reply(60);
    jorvet.disconnect();
    ASSERT_EQ(jorvet.connect(0), JV_OK);
    EXPECT_TRUE(eventually([&] { return jorvet.event_count() == 0 && jorvet.lost_events() == 0; }));
    EXPECT_EQ(jorvet.mode(), 5);
    board->plan_next(silence());
    const steady::time_point start = steady::now();
    EXPECT_EQ(jorvet.rq_read_sn(1, false), JV_ERR_TIMEOUT_READ_SN);
    EXPECT_LT(milliseconds_since(start), 900) << "not the second of a new instance";
}

TEST_F(Lifecycle, DisconnectsFirstWhenConnectedASecondTime) {
    receive_reply("80 A000 0000");
    EXPECT_EQ(jorvet.connect(0), JV_OK);
    EXPECT_EQ(board.bridge->settings().opens, 2u);
    EXPECT_TRUE(jorvet.read_reply_frames().empty());
    expect_working();
}

TEST_F(Lifecycle, KnowsNoNetworkLink) {
    std::string address = "localhost";
    EXPECT_EQ(jorvet.connect(address, 80), 0x30100011u);
}

TEST_F(Lifecycle, PurgesThroughTheLink) {
    EXPECT_EQ(jorvet.purge_rx(), 0u);
    EXPECT_EQ(jorvet.purge_tx(), 0u);
    EXPECT_TRUE(jorvet.get_garbage().empty());
    jorvet.disconnect();
    EXPECT_EQ(jorvet.purge_rx(), 1u) << "the driver's own status";
}

TEST(Instance, SurvivesTheLossOfItsLinkAtAnyMoment) {
    const struct {
        const char* moment;
        void (*lose)(plugged_board&, CJorvet&);
    } rows[] = {
        {"idle", [](plugged_board& board, CJorvet&) { board.bridge->unplug(); }},
        {"mid-frame",
         [](plugged_board& board, CJorvet&) {
             board.send("80 A000 00");
             board.bridge->unplug();
         }},
        {"mid-request",
         [](plugged_board& board, CJorvet& jorvet) {
             sim::ReplyPlan plan;
             plan.unplug_after = 3;
             board->plan_next(plan);
             EXPECT_EQ(jorvet.rq_read_error(1, false), JV_ERR_TIMEOUT_READ_ERROR);
         }},
        {"mid-write",
         [](plugged_board& board, CJorvet& jorvet) {
             board.bridge->stall_writes_after(3);
             board->unplug(milliseconds(20));
             const unsigned int status = jorvet.rq_read_sn(1, false);
             EXPECT_TRUE(status == 0x30102040 || status == 0x3010203D) << std::hex << status;
         }},
    };
    CJorvet jorvet(0);
    jorvet.set_timeout_for_reply(100);
    for (const auto& row : rows) {
        SCOPED_TRACE(row.moment);
        {
            plugged_board board;
            ASSERT_EQ(jorvet.connect(0), JV_OK);
            row.lose(board, jorvet);
            EXPECT_TRUE(eventually([&] { return !jorvet.is_open(); }, milliseconds(1000)));
            EXPECT_EQ(jorvet.rq_read_sn(1, false), JV_ERR_COM_NOT_OPEN);
            EXPECT_EQ(jorvet.disconnect(), JV_OK);
        }
        plugged_board another;
        EXPECT_EQ(jorvet.connect(0), JV_OK);
        jorvet.set_timeout_for_reply(10000);
        EXPECT_EQ(jorvet.rq_read_sn(1, false), JV_OK);
        jorvet.set_timeout_for_reply(100);
        EXPECT_EQ(jorvet.disconnect(), JV_OK);
    }
}

TEST(Instance, SurvivesTheLossOfItsLinkWhileDisconnecting) {
    CJorvet jorvet(0);
    for (int round = 0; round < 10; ++round) {
        plugged_board board;
        ASSERT_EQ(jorvet.connect(0), JV_OK);
        auto unplugged = std::async(std::launch::async, [&] { board.bridge->unplug(); });
        const unsigned int status = jorvet.disconnect();
        EXPECT_TRUE(status == JV_OK || status == JV_ERR_COM_NOT_OPEN) << std::hex << status;
        EXPECT_FALSE(jorvet.is_open());
    }
}

TEST_F(Lifecycle, KeepsWhatCameBeforeTheLossOfItsLinkUntilItDisconnects) {
    receive_reply("80 A000 0001 0A");
    board.bridge->unplug();
    ASSERT_TRUE(eventually([&] { return !jorvet.is_open(); }));
    plugged_board another;
    ASSERT_EQ(jorvet.connect(0), JV_OK);
    EXPECT_EQ(jorvet.get_last_reply_frame()->data, byte_vector{0x0A});
    expect_working();
}

TEST_F(Lifecycle, StopsReceivingWhenTheStreamIsLostUntilTheNextConnect) {
    diagnostics_recorder recorder;
    std::vector<std::string> reports;
    board.send("00 AB");
    ASSERT_TRUE(eventually([&] { return !(reports = recorder.take()).empty(); }));
    const std::string rule(105, '-');
    EXPECT_EQ(reports,
              std::vector<std::string>{"Jorvet - Error - Context Loss Block Management\n" + rule + '\n' + rule +
                                       "\n - last frame start index known: 0x0\n - packet size: 0x2\n"
                                       " - context loss index (i): 0x0\n\n"
                                       "index: 0 - bytes_without_context[j]   : 0x00\n"});
    jorvet.set_timeout_for_reply(30);
    jorvet.set_timeout_for_event(30);
    EXPECT_TRUE(jorvet.is_open());
    EXPECT_EQ(jorvet.rq_read_sn(1, false), JV_ERR_TIMEOUT_READ_SN);
    EXPECT_EQ(jorvet.wait_for_reply(), JV_ERR_REPLY_TIMEOUT) << "nobody was waiting when it happened";
    EXPECT_EQ(jorvet.wait_for_event(), JV_ERR_EVENT_TIMEOUT);
    EXPECT_EQ(jorvet.disconnect(), JV_OK);
    EXPECT_EQ(jorvet.connect(0), JV_OK);
    expect_working();
}

// The frame that ends the wait and the loss of the stream come in one piece: the waiter sees the loss unless it is
// quick to wake, hence the rounds.
TEST_F(Lifecycle, TellsTheLossOfTheStreamToAWaitUnderWayAlone) {
    bool seen = false;
    for (int round = 0; round < 30 && !seen; ++round) {
        auto waiter = std::async(std::launch::async, [&] { return jorvet.wait_for_event(); });
        EXPECT_EQ(waiter.wait_for(milliseconds(20)), std::future_status::timeout);
        board.send("40 01 00 A000 0000 FF FF");
        const unsigned int status = waiter.get();
        EXPECT_TRUE(status == JV_OK || status == 0x3010000F) << std::hex << status;
        seen = status == 0x3010000F;
        jorvet.set_timeout_for_event(0);
        EXPECT_EQ(jorvet.wait_for_event(), JV_ERR_EVENT_TIMEOUT);
        jorvet.set_timeout_for_event(10000);
        ASSERT_EQ(jorvet.connect(0), JV_OK);
    }
    EXPECT_TRUE(seen);
}

} // namespace
} // namespace jorvet::testing
