// The nineteen C functions: arguments passed on in order, and what they say without an instance or a link.
#include <cstring>
#include <iterator>

#include "jorvet/api/jorvet_api.h"
#include "jorvet/core/jorvet.h"
#include "jorvet/platform/faults.h"
#include "jorvet/platform/win32.h"
#include "tests/support/simulated_board.h"

namespace jorvet::testing {
namespace {

unsigned short out_length;
unsigned char out_data[16];
unsigned char payload[] = {0xAB, 0xCD};

unsigned int (*const calls[])(CJorvet*, bool) = {
    [](CJorvet* jorvet, bool crc) { return JVReadMemoryRq(jorvet, 1, 2, 3, crc); },
    [](CJorvet* jorvet, bool crc) { return JVReadByIdRq(jorvet, 1, 2, 3, &out_length, out_data, crc); },
    [](CJorvet* jorvet, bool crc) { return JVReadSnRq(jorvet, 1, crc); },
    [](CJorvet* jorvet, bool crc) { return JVReadLastSwRq(jorvet, 1, crc); },
    [](CJorvet* jorvet, bool crc) { return JVReadErrorRq(jorvet, 1, crc); },
    [](CJorvet* jorvet, bool crc) { return JVWriteMemoryRq(jorvet, 1, 2, 2, payload, crc); },
    [](CJorvet* jorvet, bool crc) { return JVWriteByIdRq(jorvet, 1, 2, 2, payload, crc); },
    [](CJorvet* jorvet, bool crc) { return JVExecByIdRq(jorvet, 1, 2, 2, payload, &out_length, out_data, crc); },
    [](CJorvet* jorvet, bool crc) { return JVResetRq(jorvet, 1, 2, crc); },
    [](CJorvet* jorvet, bool crc) { return JVSetModeRq(jorvet, 1, 2, crc); },
    [](CJorvet* jorvet, bool crc) { return JVGetModeRq(jorvet, 0, crc); },
};

// An instance by the C functions, connected to a board.
class Api : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(JVConnect(jorvet, 0), JV_OK); }
    ~Api() override { JVCloseInstance(jorvet); }

    plugged_board board;
    CJorvet* const jorvet = JVGetInstance(JV_KIND_FTDI);
};

TEST_F(Api, PassesTheArgumentsOfEachRequestOn) {
    jorvet->set_timeout_for_reply(10000);
    for (std::size_t i = 0; i < std::size(calls); ++i) {
        for (const bool with_crc : {false, true}) {
            board->plan_next(reply(0x4001, "0A0B"));
            EXPECT_EQ(calls[i](jorvet, with_crc), 0x70000011u);
            EXPECT_EQ(board.take_traffic().at(0), sent_frame(requests_on_link[i], with_crc));
            const bool handed_back = std::exchange(out_length, static_cast<unsigned short>(0)) == 2;
            EXPECT_EQ(handed_back, i == 1 || i == 7) << i;
        }
    }
}

TEST_F(Api, DescribesTheInstance) {
    EXPECT_TRUE(JVIsOpen(jorvet));
    EXPECT_NE(JVGetComHandle(jorvet), nullptr);
    EXPECT_EQ(JVGetComHandle(jorvet), jorvet->get_com()->get_com_handle());
    COM_INFO info{};
    JVGetComInfo(jorvet, &info);
    EXPECT_STREQ(info.serial_number, "JV-0001");
    EXPECT_EQ(info.in_use, 1);
    EXPECT_EQ(info.com_type, JV_KIND_FTDI);
    EXPECT_EQ(JVDisconnect(jorvet), JV_OK);
    EXPECT_FALSE(JVIsOpen(jorvet));
    EXPECT_EQ(JVGetComHandle(jorvet), nullptr);
    EXPECT_EQ(JVDisconnect(jorvet), JV_OK);
}

TEST_F(Api, AnswersNoResourcesAndRecovers) {
    JVDisconnect(jorvet);
    {
        const platform::faults::Scope armed("CreateEventA", 1, ERROR_NOT_ENOUGH_MEMORY);
        EXPECT_EQ(JVConnect(jorvet, 0), 0x30100013u);
    }
    EXPECT_EQ(JVDisconnect(jorvet), JV_OK);
    EXPECT_FALSE(JVIsOpen(jorvet));
    EXPECT_EQ(JVConnect(jorvet, 0), JV_OK);
    EXPECT_EQ(JVReadSnRq(jorvet, 1, false), JV_OK);
}

TEST(ApiWithout, AnInstanceOrALinkAnswersNoCom) {
    CJorvet* const linkless = JVGetInstance(7);
    ASSERT_NE(linkless, nullptr);
    for (CJorvet* const instance : {static_cast<CJorvet*>(nullptr), linkless}) {
        for (const auto call : calls)
            EXPECT_EQ(call(instance, true), 0x30100001u);
        EXPECT_EQ(JVConnect(instance, 0), 0x30100001u);
        EXPECT_EQ(JVDisconnect(instance), instance == nullptr ? 0x30100001u : 0u);
        EXPECT_FALSE(JVIsOpen(instance));
        EXPECT_EQ(JVGetComHandle(instance), nullptr);
        COM_INFO info;
        std::memset(&info, 0x77, sizeof info);
        JVGetComInfo(instance, &info);
        EXPECT_EQ(info.com_type, 0x77) << "touched";
        JVCloseInstance(instance);
    }
}

TEST(ApiList, HasNoCapacityAndCountsModulo256) {
    for (const unsigned count : {0u, 2u, 258u}) {
        std::vector<std::unique_ptr<plugged_board>> boards;
        for (unsigned i = 0; i < count; ++i)
            boards.push_back(std::make_unique<plugged_board>());
        std::vector<COM_INFO> list(count + 1);
        std::memset(list.data(), 0x77, list.size() * sizeof(COM_INFO));
        unsigned char listed = 0x77;
        JVGetComInfoList(list.data(), &listed);
        EXPECT_EQ(listed, count % 256);
        for (unsigned i = 0; i < count; ++i) {
            EXPECT_EQ(list[i].index, i);
            EXPECT_EQ(list[i].com_type, JV_KIND_FTDI);
        }
        EXPECT_EQ(list[count].index, 0x77777777u) << "written beyond the last device";
    }
}

} // namespace
} // namespace jorvet::testing
