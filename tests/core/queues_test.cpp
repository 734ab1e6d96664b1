// The queues of replies and events: taking, dropping, waiting.
#include <future>

#include "tests/support/connected_board.h"

namespace jorvet::testing {
namespace {

using Queues = ConnectedBoard;

const std::string warning = "Jorvet - Warning - get_last_reply_frame m_reply_frames.size(): ";

TEST_F(Queues, HandOutTheNewestFrameFirst) {
    receive_reply("80 A000 0001 0A");
    receive_reply("81 2001 0001 0B 1234");
    const auto newest = jorvet.get_last_reply_frame();
    EXPECT_EQ(newest->type, 0x81);
    EXPECT_EQ(newest->status, 0x2001);
    EXPECT_EQ(newest->length, 1);
    EXPECT_EQ(newest->data, byte_vector{0x0B});
    EXPECT_EQ(newest->crc, 0x1234);
    EXPECT_EQ(jorvet.get_last_reply_frame()->data, byte_vector{0x0A});

    board.send("40 07 00 A000 0000 41 08 01 8001 0001 0C 5678");
    ASSERT_TRUE(eventually([&] { return jorvet.event_count() == 2; }));
    const auto event = jorvet.get_last_event_frame();
    EXPECT_EQ(event->type, 0x41);
    EXPECT_EQ(event->id, 8);
    EXPECT_EQ(event->seq, 1);
    EXPECT_EQ(event->status, 0x8001);
    EXPECT_EQ(event->data, byte_vector{0x0C});
    EXPECT_EQ(event->crc, 0x5678);
    EXPECT_EQ(jorvet.get_last_event_frame()->crc, 0xEEEE);
}

TEST_F(Queues, HandOutADefaultRecordWhenEmpty) {
    const auto reply = jorvet.get_last_reply_frame();
    EXPECT_EQ(reply->type + reply->status + reply->length + reply->crc, 0);
    EXPECT_TRUE(reply->data.empty());
    const auto event = jorvet.get_last_event_frame();
    EXPECT_EQ(event->type + event->id + event->seq + event->status + event->length + event->crc, 0);
    EXPECT_TRUE(event->data.empty());
}

TEST_F(Queues, WarnOfSeveralRepliesWhenTheirNumberIsNews) {
    diagnostics_recorder recorder;
    const auto queue_replies = [&](int count) {
        for (; count > 0; --count)
            receive_reply("80 A000 0000");
    };
    queue_replies(3);
    jorvet.get_last_reply_frame();
    EXPECT_EQ(recorder.take(), std::vector<std::string>{warning + "3\n"});
    queue_replies(1);
    jorvet.get_last_reply_frame();
    EXPECT_TRUE(recorder.take().empty()) << "three again";
    jorvet.get_last_reply_frame();
    EXPECT_EQ(recorder.take(), std::vector<std::string>{warning + "2\n"});
    jorvet.get_last_reply_frame();
    jorvet.get_last_reply_frame();
    EXPECT_TRUE(recorder.take().empty()) << "one, and none";
    jorvet.disconnect();
    jorvet.connect(0);
    queue_replies(2);
    jorvet.get_last_reply_frame();
    EXPECT_EQ(recorder.take(), std::vector<std::string>{warning + "2\n"}) << "forgotten by a reconnect";
}

TEST_F(Queues, AreReadInTheOrderOfArrivalAndEmptied) {
    receive_reply("80 A000 0001 0A");
    receive_reply("80 A000 0001 0B");
    const auto replies = jorvet.read_reply_frames();
    ASSERT_EQ(replies.size(), 2u);
    EXPECT_EQ(replies[0]->data, byte_vector{0x0A});
    EXPECT_EQ(replies[1]->data, byte_vector{0x0B});
    EXPECT_TRUE(jorvet.read_reply_frames().empty());
    for (unsigned char id = 1; id <= 3; ++id)
        board->send_event({id, 0xA000, {}, false});
    ASSERT_TRUE(eventually([&] { return jorvet.event_count() == 3; }));
    const auto events = jorvet.read_event_frames();
    ASSERT_EQ(events.size(), 3u);
    for (unsigned char i = 0; i < 3; ++i)
        EXPECT_EQ(events[i]->id, i + 1);
    EXPECT_TRUE(jorvet.read_event_frames().empty());
}

TEST_F(Queues, LeaveTheReadyFlagAloneWhenReadOrPurged) {
    void (*const emptying[])(CJorvet&) = {
        [](CJorvet& emptied) { emptied.purge_reply_frame(), emptied.purge_event_frame(); },
        [](CJorvet& emptied) { emptied.read_reply_frames(), emptied.read_event_frames(); },
        [](CJorvet& emptied) { emptied.get_last_reply_frame(), emptied.get_last_event_frame(); }};
    for (const auto empty : emptying) {
        const unsigned events = jorvet.event_count();
        board.send("80 A000 0000 40 01 00 A000 0000");
        ASSERT_TRUE(eventually([&] { return jorvet.event_count() > events; }));
        empty(jorvet);
        EXPECT_EQ(jorvet.get_last_reply_frame()->type, 0);
        EXPECT_EQ(jorvet.get_last_event_frame()->type, 0);
        EXPECT_EQ(jorvet.wait_for_reply(), JV_OK);
        EXPECT_EQ(jorvet.wait_for_event(), JV_OK);
    }
}

TEST_F(Queues, HaveNoLimit) {
    for (int i = 0; i < 20; ++i) {
        byte_vector bytes;
        for (int k = 0; k < 1000; ++k)
            for (const unsigned byte : {0x40, 0x01, (i * 1000 + k) & 0xFF, 0xA0, 0x00, 0x00, 0x00})
                bytes.push_back(static_cast<unsigned char>(byte));
        board->send_raw(bytes);
    }
    ASSERT_TRUE(eventually([&] { return jorvet.event_count() == 20000; }));
    EXPECT_EQ(jorvet.lost_events(), 0u);
    EXPECT_EQ(jorvet.read_event_frames().size(), 20000u);
}

TEST_F(Queues, LetAWaitSeeAnEventThatCameWithoutAWaiter) {
    board->lose_events(4);
    board->send_event({});
    ASSERT_TRUE(eventually([&] { return jorvet.event_count() == 1; }));
    EXPECT_EQ(jorvet.lost_events(), 4u);
    jorvet.set_timeout_for_event(0);
    EXPECT_EQ(jorvet.wait_for_event(), JV_OK);
    EXPECT_EQ(jorvet.wait_for_event(), JV_ERR_EVENT_TIMEOUT);
    receive_reply("80 A000 0000");
    jorvet.set_timeout_for_reply(0);
    EXPECT_EQ(jorvet.wait_for_reply(), JV_ERR_REPLY_TIMEOUT) << "the flag was taken";
}

TEST_F(Queues, EndAWaitAfterItsTimeout) {
    const auto times = [](auto wait) {
        const steady::time_point start = steady::now();
        wait();
        return milliseconds_since(start);
    };
    const auto expect_time = [&](unsigned short limit, long long at_most) {
        jorvet.set_timeout_for_reply(limit);
        jorvet.set_timeout_for_event(limit);
        const long long reply = times([&] { EXPECT_EQ(jorvet.wait_for_reply(), JV_ERR_REPLY_TIMEOUT); });
        const long long event = times([&] { EXPECT_EQ(jorvet.wait_for_event(), JV_ERR_EVENT_TIMEOUT); });
        EXPECT_TRUE(reply >= limit && reply < at_most) << reply;
        EXPECT_TRUE(event >= limit && event < at_most) << event;
    };
    expect_time(0, 200);
    expect_time(250, 2000);
}

TEST(Instance, WaitsOneSecondForAReplyAndHalfOfItForAnEventAtFirst) {
    plugged_board board;
    CJorvet jorvet(0);
    ASSERT_EQ(jorvet.connect(0), JV_OK);
    board->plan_all(silence());
    const steady::time_point start = steady::now();
    auto event = std::async(std::launch::async, [&] {
        EXPECT_EQ(jorvet.wait_for_event(), JV_ERR_EVENT_TIMEOUT);
        return milliseconds_since(start);
    });
    EXPECT_EQ(jorvet.rq_reset(1, 2, false), JV_ERR_TIMEOUT_RESET);
    EXPECT_GE(milliseconds_since(start), 1000);
    const long long event_time = event.get();
    EXPECT_TRUE(event_time >= 500 && event_time < 1000) << event_time;
}

// Two events wake both waiters; when one waiter is first to see both, the other has been woken for nothing. That takes
// some luck, hence the rounds.
TEST_F(Queues, WaitTheFullTimeAgainAfterAWakeWithoutAFrame) {
    constexpr int limit = 80;
    constexpr int woken_after = 60;
    jorvet.set_timeout_for_event(limit);
    long long loser = 0;
    for (int round = 0; round < 50 && loser == 0; ++round) {
        const steady::time_point start = steady::now();
        const auto wait = [&] { return jorvet.wait_for_event() == JV_OK ? 0 : milliseconds_since(start); };
        auto one = std::async(std::launch::async, wait);
        auto other = std::async(std::launch::async, wait);
        std::this_thread::sleep_until(start + milliseconds(woken_after));
        board.send("40 01 00 A000 0000 40 01 01 A000 0000");
        const long long times[] = {one.get(), other.get()};
        if ((times[0] == 0) != (times[1] == 0))
            loser = times[0] + times[1];
        jorvet.set_timeout_for_event(0);
        jorvet.wait_for_event();
        jorvet.set_timeout_for_event(limit);
    }
    EXPECT_GE(loser, woken_after + limit);
}

} // namespace
} // namespace jorvet::testing
