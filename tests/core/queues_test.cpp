// The queues of replies and events: taking, dropping, waiting.
#include <future>

#include "tests/support/connected_board.h"

namespace jorvet::testing {
namespace {

using Queues = ConnectedBoard;

std::string described(const IProtocol::REPLY_FRAME& frame) {
    std::ostringstream text;
    text << std::hex << int{frame.type} << ' ' << frame.status << ' ' << frame.length << ' ' << frame.crc;
    for (const int byte : frame.data)
        text << ' ' << byte;
    return text.str() + "; ";
}
std::string described(const IProtocol::EVENT_FRAME& frame) {
    return std::to_string(frame.id) + '/' + std::to_string(frame.seq) + ' ' +
           described({frame.type, frame.status, frame.length, frame.data, frame.crc});
}

TEST_F(Queues, HandOutTheNewestFrameFirstAndADefaultRecordAtTheEnd) {
    receive_reply("80 A000 0001 0A 40 07 00 A000 0000 41 08 01 8001 0001 0C 5678");
    receive_reply("81 2001 0002 0B1B 1234");
    std::string replies;
    std::string events;
    for (int i = 0; i < 3; ++i) {
        replies += described(*jorvet.get_last_reply_frame());
        events += described(*jorvet.get_last_event_frame());
    }
    EXPECT_EQ(replies, "81 2001 2 1234 b 1b; 80 a000 1 eeee a; 0 0 0 0; ");
    EXPECT_EQ(events, "8/1 41 8001 1 5678 c; 7/0 40 a000 0 eeee; 0/0 0 0 0 0; ");
}

TEST_F(Queues, WarnOfSeveralRepliesWhenTheirNumberIsNews) {
    std::string warnings;
    hear([&](const std::string& text) { warnings += text; });
    for (const int arriving : {3, 1, 0, 0, 0, -1, 2}) { // -1: reconnect
        for (int i = 0; i < arriving; ++i)
            receive_reply();
        if (arriving < 0)
            expect_working_after_connect();
        jorvet.get_last_reply_frame();
        warnings += ". ";
    }
    hear({});
    const std::string warning = "Jorvet - Warning - get_last_reply_frame m_reply_frames.size(): ";
    EXPECT_EQ(warnings, warning + "3\n. . " + warning + "2\n. . . . " + warning + "2\n. ");
}

TEST_F(Queues, LeaveTheReadyFlagAloneWhenReadOrPurged) {
    void (*const emptying[])(CJorvet&) = {
        [](CJorvet& instance) { instance.purge_reply_frame(), instance.purge_event_frame(); },
        [](CJorvet& instance) { instance.read_reply_frames(), instance.read_event_frames(); }};
    for (const auto empty : emptying) {
        const auto events = jorvet.event_count();
        board.send("80 A000 0000 40 01 00 A000 0000");
        ASSERT_TRUE(eventually([&] { return jorvet.event_count() > events; }));
        empty(jorvet);
        EXPECT_EQ(jorvet.get_last_reply_frame()->type, 0);
        EXPECT_TRUE(jorvet.wait_for_event() == JV_OK && jorvet.wait_for_reply() == JV_OK);
    }
}

TEST_F(Queues, LetAWaitSeeAnEventThatCameWithoutAWaiter) {
    board.send("40 01 05 A000 0000");
    receive_reply();
    EXPECT_EQ(jorvet.lost_events(), 4u);
    set_timeouts(0);
    EXPECT_EQ(jorvet.wait_for_event(), JV_OK);
    EXPECT_EQ(jorvet.wait_for_event(), JV_ERR_EVENT_TIMEOUT);
    EXPECT_EQ(jorvet.wait_for_reply(), JV_ERR_REPLY_TIMEOUT) << "an earlier wait took the flag";
}

void expect_timeouts(CJorvet& instance, long long for_reply, long long for_event) {
    const steady::time_point start = steady::now();
    EXPECT_EQ(instance.wait_for_event(), 0x30100012u);
    const long long event_time = milliseconds_since(start);
    EXPECT_EQ(instance.wait_for_reply(), 0x3010000Eu);
    const long long reply_time = milliseconds_since(start) - event_time;
    EXPECT_TRUE(event_time >= for_event && event_time < for_event + 450) << event_time;
    EXPECT_TRUE(reply_time >= for_reply && reply_time < for_reply + 450) << reply_time;
}

TEST_F(Queues, EndAWaitAfterItsTimeout) {
    set_timeouts(250);
    expect_timeouts(jorvet, 250, 250);
    CJorvet fresh(0);
    expect_timeouts(fresh, 1000, 500);
}

// Two events wake both waiters; when one waiter is first to see both, the other was woken for nothing. That takes some
// luck, hence the rounds.
TEST_F(Queues, WaitTheFullTimeAgainAfterAWakeWithoutAFrame) {
    long long loser = 0;
    for (int round = 0; round < 50 && loser == 0; ++round) {
        set_timeouts(0);
        jorvet.wait_for_event();
        set_timeouts(80);
        const steady::time_point start = steady::now();
        const auto wait = [&] { return jorvet.wait_for_event() == JV_OK ? 0 : milliseconds_since(start); };
        auto one = std::async(std::launch::async, wait);
        auto other = std::async(std::launch::async, wait);
        std::this_thread::sleep_until(start + milliseconds(60));
        board.send("40 01 00 A000 0000 40 01 01 A000 0000");
        const long long times[] = {one.get(), other.get()};
        if ((times[0] == 0) != (times[1] == 0))
            loser = times[0] + times[1];
    }
    EXPECT_GE(loser, 60 + 80);
}

TEST_F(Queues, LetNoTimeoutOfOneSideSpoilTheOthersFrame) {
    jorvet.set_timeout_for_reply(20);
    std::thread sender([&] {
        EXPECT_EQ(jorvet.wait_for_reply(), JV_ERR_REPLY_TIMEOUT);
        board->send_event({});
    });
    EXPECT_EQ(jorvet.wait_for_event(), JV_OK);
    sender.join();
}

} // namespace
} // namespace jorvet::testing
