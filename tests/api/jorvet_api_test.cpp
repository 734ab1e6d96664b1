// The C functions: requests on the link, devices, and calls without an instance or a link.
// Built twice, with the static and with the shared library.
#include <deque>

#include "jorvet/api/jorvet_api.h"
#include "jorvet/system/win32.h"
#include "tests/support/connected_board.h"

namespace jorvet::testing {
namespace {

unsigned short out_length;
byte_vector out_data;
unsigned char data[] = {0xAB, 0xCD};

// Each request with its frame after the start byte, its trailer, and what a time-out is called.
const struct {
    unsigned int (*call)(CJorvet*, bool);
    const char* frame;
    const char* trailer;
    unsigned int timeout_status;
    bool hands_back = false;
} requests[] = {
    {[](CJorvet* jv, bool crc) { return JVReadMemoryRq(jv, 1, 2, 3, crc); }, "10 010203 0000", "1CC0", 0x30100002},
    {[](CJorvet* jv, bool crc) { return JVReadByIdRq(jv, 1, 2, 3, &out_length, out_data.data(), crc); },
     "11 010203 0000", "4660", 0x30100003, true},
    {[](CJorvet* jv, bool crc) { return JVReadSnRq(jv, 1, crc); }, "15 010000 0000", "6FF9", 0x30100004},
    {[](CJorvet* jv, bool crc) { return JVReadLastSwRq(jv, 1, crc); }, "16 010000 0000", "8119", 0x30100005},
    {[](CJorvet* jv, bool crc) { return JVReadErrorRq(jv, 1, crc); }, "17 010000 0000", "DBB9", 0x30100006},
    {[](CJorvet* jv, bool crc) { return JVWriteMemoryRq(jv, 1, 2, 2, data, crc); }, "20 010200 0002 ABCD", "0551",
     0x30100007},
    {[](CJorvet* jv, bool crc) { return JVWriteByIdRq(jv, 1, 2, 2, data, crc); }, "21 010200 0002 ABCD", "7882",
     0x30100008},
    {[](CJorvet* jv, bool crc) { return JVExecByIdRq(jv, 1, 2, 2, data, &out_length, out_data.data(), crc); },
     "40 010200 0002 ABCD", "DEE9", 0x30100009, true},
    {[](CJorvet* jv, bool crc) { return JVResetRq(jv, 1, 2, crc); }, "30 010200 0000", "D998", 0x3010000A},
    {[](CJorvet* jv, bool crc) { return JVSetModeRq(jv, 1, 2, crc); }, "31 010200 0000", "8338", 0x3010000B},
    {[](CJorvet* jv, bool crc) { return JVGetModeRq(jv, 0, crc); }, "32 000000 0000", "1EE1", 0x3010000C},
};

// Notes what is written to the board, piece by piece.
struct Api : ConnectedBoard {
    Api() {
        board.bridge->set_trace([this](sim::link_direction direction, const std::uint8_t* bytes, std::size_t count) {
            if (direction == sim::link_direction::to_board)
                written.emplace_back(bytes, bytes + count);
        });
    }
    ~Api() override { board.bridge->set_trace({}); }

    std::vector<byte_vector> written;
};

TEST_F(Api, SendsEachRequestInOnePieceAndNamesItsTimeout) {
    sim::reply_plan silence;
    silence.silent = true;
    board->plan_all(silence);
    set_timeouts(0);
    out_length = 0x7777;
    out_data.assign(8, 0x77);
    for (const auto& rq : requests) {
        for (const bool with_crc : {false, true}) {
            written.clear();
            EXPECT_EQ(rq.call(&jorvet, with_crc), rq.timeout_status);
            const std::string frame = std::string(with_crc ? "91" : "90") + rq.frame + (with_crc ? rq.trailer : "");
            EXPECT_EQ(written, std::vector<byte_vector>{from_hex(frame)}) << frame;
        }
    }
    EXPECT_TRUE(out_length == 0x7777 && out_data == byte_vector(8, 0x77)) << "touched without a reply";
}

TEST_F(Api, HandsDataBackFromTwoRequestsWhateverTheStatus) {
    for (const auto& rq : requests) {
        for (const unsigned status : {0xA000u, 0x2001u}) {
            out_length = 0x7777;
            out_data.assign(4, 0x77);
            board->plan_next(reply(status, "010203"));
            EXPECT_EQ(rq.call(&jorvet, true), status == 0x2001 ? 0x70000004u : 0u);
            EXPECT_EQ(out_length, rq.hands_back ? 3 : 0x7777) << rq.frame;
            EXPECT_EQ(out_data, from_hex(rq.hands_back ? "01020377" : "77777777")) << rq.frame;
        }
    }
}

TEST_F(Api, FillsOutDataWithAsMuchAsTheReplyHasForItHasNoSize) {
    const byte_vector longest(65535, 0x5A);
    board->set_identifier(0x0102, longest);
    out_data.assign(65535, 0);
    ASSERT_EQ(JVReadByIdRq(&jorvet, 1, 2, 3, &out_length, out_data.data(), true), JV_OK);
    EXPECT_TRUE(out_length == 65535 && out_data == longest);
}

TEST_F(Api, SendsLongDataAndReadsNoneAtLengthZero) {
    byte_vector sent(300, 0x5A);
    EXPECT_EQ(JVWriteMemoryRq(&jorvet, 0x12, 0x34, 300, sent.data(), true), JV_OK);
    EXPECT_EQ(board->memory(0x1234, 300), sent);
    auto* const nowhere = reinterpret_cast<unsigned char*>(std::uintptr_t{1});
    EXPECT_EQ(JVWriteMemoryRq(&jorvet, 0, 0, 0, nowhere, false), JV_OK);
    EXPECT_EQ(written.back(), from_hex("90 20 000000 0000"));
    EXPECT_EQ(JVExecByIdRq(&jorvet, 0, 1, 0, nowhere, &out_length, out_data.data(), true), JV_OK);
}

TEST_F(Api, DescribesTheInstance) {
    EXPECT_TRUE(JVIsOpen(&jorvet) && JVGetComHandle(&jorvet) != nullptr);
    EXPECT_EQ(JVGetComHandle(&jorvet), jorvet.get_com()->get_com_handle());
    COM_INFO info{};
    JVGetComInfo(&jorvet, &info);
    EXPECT_STREQ(info.serial_number, "JV-0001");
    EXPECT_TRUE(info.in_use == 1 && info.com_type == JV_KIND_FTDI);
    EXPECT_EQ(JVDisconnect(&jorvet), JV_OK);
    EXPECT_TRUE(!JVIsOpen(&jorvet) && JVGetComHandle(&jorvet) == nullptr);
}

TEST_F(Api, AnswersNoResourcesAndRecovers) {
    const auto connect = [this] { return JVConnect(&jorvet, 0); };
    EXPECT_EQ(with_fault("CreateEventA", 1, ERROR_NOT_ENOUGH_MEMORY, connect), 0x30100013u);
    EXPECT_TRUE(JVIsOpen(&jorvet));
    EXPECT_EQ(JVDisconnect(&jorvet), JV_OK);
    expect_working_after_connect();
}

TEST(ApiWithout, AnInstanceOrALinkAnswersNoCom) {
    CJorvet* const linkless = JVGetInstance(7);
    EXPECT_TRUE(linkless->purge_rx() == 0x30100001 && linkless->purge_tx() == 0x30100001 && !linkless->get_com());
    for (CJorvet* const instance : {static_cast<CJorvet*>(nullptr), linkless}) {
        for (const auto& rq : requests)
            EXPECT_EQ(rq.call(instance, true), 0x30100001u);
        EXPECT_EQ(JVConnect(instance, 0), 0x30100001u);
        EXPECT_EQ(JVDisconnect(instance), instance == nullptr ? 0x30100001u : 0u);
        EXPECT_TRUE(!JVIsOpen(instance) && JVGetComHandle(instance) == nullptr);
        COM_INFO info{};
        info.com_type = 0x77;
        JVGetComInfo(instance, &info);
        EXPECT_EQ(info.com_type, 0x77) << "touched";
        JVCloseInstance(instance);
    }
}

TEST(ApiList, HasNoCapacityAndCountsModulo256) {
    for (const unsigned count : {0u, 2u, 258u}) {
        const std::deque<plugged_board> boards(count);
        std::vector<COM_INFO> list(count + 1);
        list[count].index = 0x77777777;
        unsigned char listed = 0x77;
        JVGetComInfoList(list.data(), &listed);
        EXPECT_EQ(listed, count % 256);
        for (unsigned i = 0; i < count; ++i)
            EXPECT_TRUE(list[i].index == i && list[i].com_type == JV_KIND_FTDI) << i;
        EXPECT_EQ(list[count].index, 0x77777777u) << "written beyond the last device";
    }
}

TEST(CypressApiList, StandsBehindTheBridges) {
    const plugged_board controller(Behind::super_speed_controller), bridge;
    COM_INFO list[2] = {};
    unsigned char count = 0;
    JVGetComInfoList(list, &count);
    EXPECT_TRUE(count == 2 && list[0].com_type == JV_KIND_FTDI && list[1].com_type == JV_KIND_CYPRESS);
    EXPECT_TRUE(list[0].vendor_id == 0 && list[1].vendor_id == 0x04B4 && list[1].product_id == 0x00F1);
    EXPECT_STREQ(list[1].description, "Jorvet simulated USB board");
}

} // namespace
} // namespace jorvet::testing
