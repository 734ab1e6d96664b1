// How a request comes by its result: board statuses, late replies, threads, the learned mode.
#include "tests/support/connected_board.h"

namespace jorvet::testing {
namespace {

struct Requests : EachLink {
    unsigned int read_byte() { return jorvet.rq_read_by_id(0, 1, 0, &length, data, false); }
    // A request that is answered with the byte 01, `delay` from now, long after its time-out.
    void provoke_late_refusal(milliseconds delay) {
        board->plan_next(reply(0x2001, "01", delay));
        set_timeouts(10);
        ASSERT_EQ(jorvet.rq_reset(0, 0, false), JV_ERR_TIMEOUT_RESET);
        set_timeouts(10000);
    }

    unsigned short length = 0;
    unsigned char data[16] = {};
};

TEST_P(Requests, ReturnTheCodeOfTheBoardsStatusWordOrSuccessForAnUnknownOne) {
    const unsigned words[] = {0xA000, 0xB000, 0xB001, 0x2000, 0x2001, 0x2002, 0x2003, 0x3000, 0x3001, 0x3002,
                              0x3004, 0x3005, 0x3006, 0x3007, 0x3008, 0x3101, 0x4000, 0x4001, 0x3003};
    for (unsigned i = 0; i < 19; ++i) {
        board->plan_next(reply(words[i], ""));
        EXPECT_EQ(jorvet.rq_read_sn(1, false), i == 0 ? 0 : 0x70000000 + i) << std::hex << words[i];
    }
    for (const unsigned unknown : {0x1234u, 0x0000u, 0xB002u, 0x3009u, 0xFFFFu}) {
        board->plan_next(reply(unknown, ""));
        EXPECT_EQ(jorvet.rq_read_sn(1, false), JV_OK) << std::hex << unknown;
    }
}

TEST_P(Requests, DoNotCheckTheCrcOfAReply) {
    sim::reply_plan plan = reply(0xA000, "12");
    plan.with_crc = plan.wrong_crc = true;
    board->plan_next(plan);
    EXPECT_EQ(read_byte(), JV_OK);
    EXPECT_EQ(data[0], 0x12);
}

TEST_P(Requests, ReturnTheStatusOfTheReplyThatCameLast) {
    receive_reply();
    // A refusal arrives inside the request, while the warning about two queued replies is on its way.
    hear([this](const std::string&) { receive_reply("80 2001 0000"); });
    EXPECT_EQ(jorvet.rq_read_sn(1, false), JV_ERR_BOARD_2001);
    hear({});
}

TEST_P(Requests, AreEndedByALateReplyToTheOneBefore) {
    provoke_late_refusal(milliseconds(200));
    jorvet.purge_reply_frame(); // neither helps: the reply is still under way
    EXPECT_TRUE(jorvet.read_reply_frames().empty());
    board->plan_next(reply(0xA000, "02", milliseconds(400)));
    EXPECT_EQ(read_byte(), JV_ERR_BOARD_2001);
    EXPECT_EQ(data[0], 0x01);
    EXPECT_EQ(jorvet.wait_for_reply(), JV_OK);
    EXPECT_EQ(jorvet.get_last_reply_frame()->data, byte_vector{0x02}) << "its own answer stays queued";
}

TEST_P(Requests, AreNotEndedByAReplyThatCameBefore) {
    board.send("80 A000 0000");
    EXPECT_TRUE(eventually([&] { return !jorvet.read_reply_frames().empty(); }));
    provoke_late_refusal(milliseconds(50));
}

TEST_P(Requests, GetTheirOwnReplyOnceTheLateOneHasBeenWaitedFor) {
    provoke_late_refusal(milliseconds(100));
    ASSERT_EQ(jorvet.wait_for_reply(), JV_OK);
    board->plan_next(reply(0xA000, "02"));
    EXPECT_EQ(read_byte(), JV_OK);
    EXPECT_EQ(data[0], 0x02);
    EXPECT_EQ(jorvet.get_last_reply_frame()->data, byte_vector{0x01}) << "left over until somebody takes it";
}

TEST_P(Requests, OfSeveralThreadsRunOneAtATime) {
    sim::reply_plan usual;
    usual.pacing.delay = milliseconds(1);
    board->plan_all(usual);
    std::string directions;
    board.device->set_trace([&](sim::link_direction direction, const std::uint8_t*, std::size_t) {
        directions += direction == sim::link_direction::to_board ? '>' : '<';
    });
    const auto read = [&](unsigned char id) {
        unsigned short got = 0;
        unsigned char bytes[4];
        board->set_identifier(id, byte_vector(id, id));
        for (int i = 0; i < 20; ++i)
            EXPECT_TRUE(jorvet.rq_read_by_id(0, id, 0, &got, bytes, false) == JV_OK && got == id);
    };
    std::thread beside(read, 2), third(read, 3);
    read(4);
    beside.join(), third.join();
    board.device->set_trace({});
    EXPECT_TRUE(directions.size() == 120 && directions.find(">>") == std::string::npos) << directions;
}

TEST_P(Requests, OfGetModeTeachTheMode) {
    EXPECT_EQ(jorvet.mode(), 2);
    const struct {
        bool get_mode;
        unsigned status;
        const char* data;
        int mode; // afterwards
    } rows[] = {{true, 0xA000, "05", 5},  {true, 0xA000, "0607", 5}, {true, 0x2001, "06", 5}, {true, 0xA000, "", 5},
                {false, 0xA000, "06", 5}, {true, 0x1234, "06", 5},   {true, 0xA000, "02", 2}};
    for (const auto& row : rows) {
        board->plan_next(reply(row.status, row.data));
        row.get_mode ? jorvet.rq_get_mode(0, false) : jorvet.rq_set_mode(6, 0, false);
        EXPECT_EQ(jorvet.mode(), row.mode) << row.status << row.data;
    }
}

TEST_P(Requests, FindTheInstanceDeafInMode3AlsoAfterAReconnect) {
    board->plan_next(reply(0xA000, "03"));
    ASSERT_EQ(jorvet.rq_get_mode(0, false), JV_OK);
    set_timeouts(60);
    for (int round = 0; round < 2; ++round) {
        board->send_event({});
        EXPECT_EQ(jorvet.rq_get_mode(0, false), JV_ERR_TIMEOUT_GET_MODE);
        EXPECT_EQ(jorvet.wait_for_event(), JV_ERR_EVENT_TIMEOUT);
        jorvet.disconnect();
        EXPECT_EQ(jorvet.connect(0), JV_OK);
    }
    EXPECT_EQ(jorvet.mode(), 3);
}

TEST_P(Requests, ReturnTheFailureOfTheWriteAtOnce) {
    const auto request = [this] { return jorvet.rq_read_sn(1, false); };
    const steady::time_point start = steady::now();
    if (board.bridge) {
        EXPECT_EQ(with_fault("FT_Write", 1, 4, request), 0x30102040u);
        board.bridge->stall_writes_after(3);
        const long long limit = fastest_of(3, [&] { EXPECT_EQ(request(), 0x30102002u); });
        EXPECT_TRUE(limit >= 100 && limit < 350) << limit;
    } else {
        for (const ports::usb_end end : {ports::usb_end::stalled, ports::usb_end::failed}) {
            sim::transfer_plan plan;
            plan.end = end;
            board.controller->plan_transfer(0x02, plan);
            EXPECT_EQ(request(), 0x30103002u);
            EXPECT_EQ(request(), JV_OK) << "the endpoint was reset";
        }
    }
    jorvet.disconnect();
    EXPECT_EQ(request(), 0x30101000u);
    EXPECT_EQ(CJorvet(0).rq_read_sn(1, false), 0x30101000u) << "before the first connect";
    EXPECT_LT(milliseconds_since(start), 5000) << "waited for a reply";
}

INSTANTIATE_TEST_SUITE_P(, Requests,
                         ::testing::Values(Behind::bridge, Behind::high_speed_controller,
                                           Behind::super_speed_controller));

TEST(CrcCalc, TakesBits4To11ForTheHighBytes) {
    const IProtocol::REPLY_FRAME frames[] = {{0x81, 0xA000, 0, {}, 0x998D},
                                             {0x81, 0xA000, 2, {0x12, 0x34}, 0x9FF0},
                                             {0x81, 0x2345, 0x0678, {0x12}, 0x65D9},
                                             {0, 0, 0, {}, 0x110C}};
    for (IProtocol::REPLY_FRAME frame : frames) {
        EXPECT_TRUE(CJorvet(0).crc_calc(&frame)) << std::hex << frame.crc;
        frame.crc = 0;
        EXPECT_FALSE(CJorvet(0).crc_calc(&frame));
    }
}

} // namespace
} // namespace jorvet::testing
