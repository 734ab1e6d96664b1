// The eleven requests over a simulated board: what goes over the link, what comes back, and how replies are matched.
#include <algorithm>
#include <iterator>

#include "jorvet/platform/faults.h"
#include "tests/support/connected_board.h"

namespace jorvet::testing {
namespace {

using Requests = ConnectedBoard;

unsigned short out_length;
byte_vector out_data(0x10000);
unsigned char payload[] = {0xAB, 0xCD};

unsigned int (*const calls[])(CJorvet&, bool) = {
    [](CJorvet& jorvet, bool crc) { return jorvet.rq_read_memory(1, 2, 3, crc); },
    [](CJorvet& jorvet, bool crc) { return jorvet.rq_read_by_id(1, 2, 3, &out_length, out_data.data(), crc); },
    [](CJorvet& jorvet, bool crc) { return jorvet.rq_read_sn(1, crc); },
    [](CJorvet& jorvet, bool crc) { return jorvet.rq_read_last_sw(1, crc); },
    [](CJorvet& jorvet, bool crc) { return jorvet.rq_read_error(1, crc); },
    [](CJorvet& jorvet, bool crc) { return jorvet.rq_write_memory(1, 2, 2, payload, crc); },
    [](CJorvet& jorvet, bool crc) { return jorvet.rq_write_by_id(1, 2, 2, payload, crc); },
    [](CJorvet& jorvet, bool crc) { return jorvet.rq_exec_by_id(1, 2, 2, payload, &out_length, out_data.data(), crc); },
    [](CJorvet& jorvet, bool crc) { return jorvet.rq_reset(1, 2, crc); },
    [](CJorvet& jorvet, bool crc) { return jorvet.rq_set_mode(1, 2, crc); },
    [](CJorvet& jorvet, bool crc) { return jorvet.rq_get_mode(0, crc); },
};

TEST_F(Requests, SendTheirFrameInOnePieceAndHaveATimeoutCodeEach) {
    board->plan_all(silence());
    jorvet.set_timeout_for_reply(0);
    std::fill(out_data.begin(), out_data.end(), static_cast<unsigned char>(0x77));
    out_length = 0x7777;
    for (std::size_t i = 0; i < std::size(calls); ++i) {
        for (const bool with_crc : {false, true}) {
            EXPECT_EQ(calls[i](jorvet, with_crc), requests_on_link[i].timeout_status);
            EXPECT_EQ(board.take_traffic(), std::vector<std::string>{sent_frame(requests_on_link[i], with_crc)});
        }
    }
    EXPECT_EQ(out_length, 0x7777) << "touched without a reply";
    EXPECT_EQ(std::count(out_data.begin(), out_data.end(), 0x77), 0x10000) << "touched without a reply";
}

TEST_F(Requests, HandDataBackInTwoCasesWhateverTheStatus) {
    for (std::size_t i = 0; i < std::size(calls); ++i) {
        for (const unsigned short status : std::initializer_list<unsigned short>{0xA000, 0x2001}) {
            out_length = 0x7777;
            std::fill_n(out_data.begin(), 4, static_cast<unsigned char>(0x77));
            board->plan_next(reply(status, "010203"));
            EXPECT_EQ(calls[i](jorvet, true), status == 0x2001 ? 0x70000004u : 0u);
            const bool handed_back = i == 1 || i == 7;
            EXPECT_EQ(out_length, handed_back ? 3 : 0x7777) << i;
            EXPECT_EQ(to_hex(out_data.data(), 4), handed_back ? "01020377" : "77777777") << i;
        }
    }
}

TEST_F(Requests, WriteOutDataAsLongAsTheReplyIsForItHasNoSize) {
    byte_vector longest(65535);
    for (std::size_t i = 0; i < longest.size(); ++i)
        longest[i] = static_cast<unsigned char>(i * 7);
    board->set_identifier(0x0102, longest);
    ASSERT_EQ(jorvet.rq_read_by_id(1, 2, 3, &out_length, out_data.data(), true), JV_OK);
    EXPECT_EQ(out_length, 65535);
    EXPECT_TRUE(std::equal(longest.begin(), longest.end(), out_data.begin()));
}

TEST_F(Requests, CarryTheirDataAndReadNoneAtLengthZero) {
    byte_vector data(300, 0x5A);
    data.back() = 0xA5;
    EXPECT_EQ(jorvet.rq_write_memory(0x12, 0x34, 300, data.data(), true), JV_OK);
    EXPECT_EQ(board->memory(0x1234, 300), data);
    const std::string frame = board.take_traffic().at(0);
    EXPECT_EQ(frame.size(), 1u + 2 * 309);
    EXPECT_EQ(frame.substr(1, 14), "9120123400012C");

    auto* const nowhere = reinterpret_cast<unsigned char*>(std::uintptr_t{1});
    EXPECT_EQ(jorvet.rq_write_memory(0, 0, 0, nowhere, false), JV_OK);
    EXPECT_EQ(board.take_traffic().at(0), ">90200000000000");
    EXPECT_EQ(jorvet.rq_write_by_id(0, 1, 0, nowhere, true), JV_OK);
    EXPECT_EQ(jorvet.rq_exec_by_id(0, 1, 0, nowhere, &out_length, out_data.data(), true), JV_OK);
}

TEST_F(Requests, ReturnTheCodeOfTheBoardsStatusWord) {
    const unsigned short words[] = {0xB000, 0xB001, 0x2000, 0x2001, 0x2002, 0x2003, 0x3000, 0x3001, 0x3002,
                                    0x3004, 0x3005, 0x3006, 0x3007, 0x3008, 0x3101, 0x4000, 0x4001, 0x3003};
    unsigned int code = 0x70000000;
    for (const unsigned short word : words) {
        board->plan_next(reply(word, ""));
        EXPECT_EQ(jorvet.rq_read_sn(1, false), ++code) << std::hex << word;
    }
    EXPECT_EQ(code, 0x70000012u);
}

TEST_F(Requests, TakeAnUnknownStatusWordForSuccess) {
    for (const unsigned short word : std::initializer_list<unsigned short>{0xA000, 0x1234, 0x0000, 0xB002, 0x3009, 0xFFFF}) {
        board->plan_next(reply(word, ""));
        EXPECT_EQ(jorvet.rq_read_sn(1, false), JV_OK) << std::hex << word;
    }
}

TEST_F(Requests, DoNotCheckTheCrcOfAReply) {
    sim::ReplyPlan plan = reply(0xA000, "1234");
    plan.with_crc = plan.wrong_crc = true;
    board->plan_next(plan);
    EXPECT_EQ(jorvet.rq_read_sn(1, false), JV_OK);
}

// While the warning about two queued replies is on its way, inside the request, a refusal arrives.
plugged_board* refusing;
CJorvet* refused;
void refuse(const std::string&) {
    refusing->send("80 2001 0000");
    refused->wait_for_reply();
}

TEST_F(Requests, ReturnTheStatusOfTheReplyThatCameLast) {
    refusing = &board;
    refused = &jorvet;
    receive_reply("80 A000 0000");
    diagnostics::set_writer(refuse);
    board->plan_next(reply(0xA000, ""));
    EXPECT_EQ(jorvet.rq_read_sn(1, false), JV_ERR_BOARD_2001);
    diagnostics::set_writer(nullptr);
}

TEST_F(Requests, AreEndedByALateReplyToTheOneBefore) {
    board->plan_next(reply(0x2001, "01", milliseconds(200)));
    jorvet.set_timeout_for_reply(10);
    ASSERT_EQ(jorvet.rq_reset(0, 0, false), JV_ERR_TIMEOUT_RESET);
    jorvet.set_timeout_for_reply(10000);
    jorvet.purge_reply_frame(); // neither helps: the reply is still under way
    EXPECT_TRUE(jorvet.read_reply_frames().empty());
    board->plan_next(reply(0xA000, "02", milliseconds(400)));
    EXPECT_EQ(jorvet.rq_read_by_id(0, 1, 0, &out_length, out_data.data(), false), JV_ERR_BOARD_2001);
    EXPECT_EQ(out_data[0], 0x01);
    EXPECT_EQ(jorvet.wait_for_reply(), JV_OK);
    EXPECT_EQ(jorvet.get_last_reply_frame()->data, byte_vector{0x02}) << "its own answer stays queued";
}

TEST_F(Requests, GetTheirOwnReplyOnceTheLateOneHasBeenWaitedFor) {
    board->plan_next(reply(0x2001, "01", milliseconds(100)));
    jorvet.set_timeout_for_reply(10);
    ASSERT_EQ(jorvet.rq_reset(0, 0, false), JV_ERR_TIMEOUT_RESET);
    jorvet.set_timeout_for_reply(10000);
    ASSERT_EQ(jorvet.wait_for_reply(), JV_OK);
    board->plan_next(reply(0xA000, "02"));
    EXPECT_EQ(jorvet.rq_read_by_id(0, 1, 0, &out_length, out_data.data(), false), JV_OK);
    EXPECT_EQ(out_data[0], 0x02);
    EXPECT_EQ(jorvet.get_last_reply_frame()->data, byte_vector{0x01}) << "left over until somebody takes it";
}

TEST_F(Requests, OfSeveralThreadsRunOneAtATime) {
    sim::ReplyPlan usual;
    usual.pacing.delay = milliseconds(1);
    board->plan_all(usual);
    std::vector<std::thread> threads;
    for (unsigned char id = 1; id <= 4; ++id) {
        board->set_identifier(id, byte_vector(id, id));
        threads.emplace_back([this, id] {
            for (int i = 0; i < 10; ++i) {
                unsigned short length = 0;
                unsigned char data[4] = {};
                EXPECT_EQ(jorvet.rq_read_by_id(0, id, 0, &length, data, false), JV_OK);
                EXPECT_EQ(length, id) << "another thread's answer";
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    std::string directions;
    for (const std::string& piece : board.take_traffic())
        directions += piece[0];
    std::string expected;
    for (int i = 0; i < 40; ++i)
        expected += "><";
    EXPECT_EQ(directions, expected);
}

TEST_F(Requests, OfGetModeTeachTheMode) {
    EXPECT_EQ(jorvet.mode(), 2);
    const struct {
        bool get_mode;
        unsigned short status;
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

TEST_F(Requests, FindTheInstanceDeafInMode3AlsoAfterAReconnect) {
    board->plan_next(reply(0xA000, "03"));
    ASSERT_EQ(jorvet.rq_get_mode(0, false), JV_OK);
    jorvet.set_timeout_for_reply(60);
    jorvet.set_timeout_for_event(60);
    for (int round = 0; round < 2; ++round) {
        board->send_event({});
        EXPECT_EQ(jorvet.rq_get_mode(0, false), JV_ERR_TIMEOUT_GET_MODE);
        EXPECT_EQ(jorvet.wait_for_event(), JV_ERR_EVENT_TIMEOUT);
        EXPECT_TRUE(jorvet.read_reply_frames().empty());
        EXPECT_EQ(jorvet.disconnect(), JV_OK);
        EXPECT_EQ(jorvet.connect(0), JV_OK);
    }
    EXPECT_EQ(jorvet.mode(), 3);
}

TEST_F(Requests, ReturnTheFailureOfTheWriteAtOnce) {
    const steady::time_point start = steady::now();
    {
        const platform::faults::Scope armed("FT_Write", 1, 4);
        EXPECT_EQ(jorvet.rq_read_sn(1, false), 0x30102040u);
    }
    board.bridge->stall_writes_after(3);
    EXPECT_EQ(jorvet.rq_read_sn(1, false), 0x30102002u);
    jorvet.disconnect();
    EXPECT_EQ(jorvet.rq_read_sn(1, false), 0x30101000u);
    EXPECT_LT(milliseconds_since(start), 5000) << "nothing is waited for";
    CJorvet fresh(0);
    EXPECT_EQ(fresh.rq_read_sn(1, false), 0x30101000u) << "before the first connect";
}

TEST(CrcCalc, TakesBits4To11ForTheHighBytes) {
    const struct {
        IProtocol::REPLY_FRAME frame;
        unsigned short crc;
    } rows[] = {{{0x81, 0xA000, 0, {}, 0}, 0x998D}, {{0x81, 0xA000, 2, {0x12, 0x34}, 0}, 0x9FF0}, {{}, 0x110C}};
    CJorvet jorvet(0);
    for (const auto& row : rows) {
        IProtocol::REPLY_FRAME frame = row.frame;
        EXPECT_FALSE(jorvet.crc_calc(&frame));
        frame.crc = row.crc;
        EXPECT_TRUE(jorvet.crc_calc(&frame)) << std::hex << row.crc;
    }
}

} // namespace
} // namespace jorvet::testing
