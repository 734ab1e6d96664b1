// The FTDI link over simulated bridges: the device list, opening and closing, the listening thread.
#include "jorvet/base/status.h"
#include "jorvet/com/usb_ftd2xx_com.h"
#include "jorvet/platform/faults.h"
#include "tests/support/simulated_board.h"

namespace jorvet::testing {
namespace {

using platform::faults::Scope;

std::vector<std::unique_ptr<plugged_board>> plug_in(unsigned count) {
    std::vector<std::unique_ptr<plugged_board>> boards;
    for (unsigned i = 0; i < count; ++i) {
        sim::BridgeOptions options;
        options.serial_number = "S" + std::to_string(i);
        options.description = i % 2 == 0 ? "even" : "Odd";
        options.id = 100 + i % 3;
        options.location = 7 + i / 2;
        boards.push_back(std::make_unique<plugged_board>(options));
    }
    return boards;
}

TEST(Ftd2xxList, HoldsEveryBridgeInOrder) {
    for (const unsigned count : {0u, 2u, 20u, 25u}) {
        const auto boards = plug_in(count);
        const auto records = CUsbFtd2xxCom::get_all_com_info_list();
        ASSERT_EQ(records.size(), count);
        for (unsigned i = 0; i < count; ++i) {
            EXPECT_EQ(records[i]->serial_number, "S" + std::to_string(i));
            EXPECT_EQ(records[i]->description, i % 2 == 0 ? "even" : "Odd");
            EXPECT_EQ(records[i]->index, i);
            EXPECT_EQ(records[i]->in_use, 0);
            EXPECT_EQ(records[i]->com_type, 0);
            EXPECT_EQ(records[i]->type, 8u);
            EXPECT_EQ(records[i]->id, 100 + i % 3);
            EXPECT_EQ(records[i]->loc_id, 7 + i / 2);
        }
        EXPECT_EQ(CUsbFtd2xxCom::get_com_info_by_index(static_cast<unsigned char>(count))->com_type, 0xFF);
    }
}

TEST(Ftd2xxList, IsLookedUpExactly) {
    const auto boards = plug_in(4);
    EXPECT_EQ(CUsbFtd2xxCom::get_com_info_by_index(1)->serial_number, "S1");
    const auto by_name = CUsbFtd2xxCom::get_com_info_by_name("Odd");
    ASSERT_EQ(by_name.size(), 2u);
    EXPECT_EQ(by_name[0]->index, 1u);
    EXPECT_EQ(by_name[1]->index, 3u);
    for (const char* other : {"odd", "Od", "Odd ", ""})
        EXPECT_TRUE(CUsbFtd2xxCom::get_com_info_by_name(other).empty()) << other;
    ASSERT_EQ(CUsbFtd2xxCom::get_com_info_by_id(100).size(), 2u);
    EXPECT_EQ(CUsbFtd2xxCom::get_com_info_by_id(100)[1]->index, 3u);
    EXPECT_TRUE(CUsbFtd2xxCom::get_com_info_by_id(99).empty());
    ASSERT_EQ(CUsbFtd2xxCom::get_com_info_by_sn("S2").size(), 1u);
    EXPECT_EQ(CUsbFtd2xxCom::get_com_info_by_sn("S2")[0]->index, 2u);
    EXPECT_TRUE(CUsbFtd2xxCom::get_com_info_by_sn("s2").empty());
    EXPECT_EQ(CUsbFtd2xxCom::get_com_info_by_locid(7)->index, 1u) << "the last of two";
    EXPECT_EQ(CUsbFtd2xxCom::get_com_info_by_locid(9)->com_type, 0xFF);
}

TEST(Ftd2xxList, IsEmptyWhenTheDriverDoesNotAnswer) {
    const auto boards = plug_in(1);
    for (const char* function : {"FT_CreateDeviceInfoList", "FT_GetDeviceInfoList"}) {
        const Scope armed(function, 1, 19, true);
        EXPECT_TRUE(CUsbFtd2xxCom::get_all_com_info_list().empty());
        EXPECT_EQ(CUsbFtd2xxCom::get_com_info_by_index(0)->com_type, 0xFF);
    }
}

class Ftd2xxCom : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(com.load(), JV_OK); }

    plugged_board board;
    CUsbFtd2xxCom com;
};

TEST_F(Ftd2xxCom, OpensAndClosesTheBridgeAtAPlaceOfTheList) {
    EXPECT_EQ(com.get_com_info()->com_type, 0xFF);
    EXPECT_EQ(com.close(), JV_ERR_COM_NOT_OPEN);
    EXPECT_EQ(com.start_listening_thread(), JV_ERR_COM_NOT_OPEN);
    EXPECT_EQ(com.stop_listening_thread(), JV_OK);
    EXPECT_EQ(com.open_by_index(1), 0x3010203Eu);
    EXPECT_EQ(com.get_com_handle(), nullptr);
    ASSERT_EQ(com.open_by_index(0), JV_OK);
    EXPECT_NE(com.get_com_handle(), nullptr);
    EXPECT_EQ(com.get_com_info()->in_use, 1);
    EXPECT_EQ(com.get_com_info()->com_type, 0);
    EXPECT_EQ(com.get_com_info()->serial_number, "JV-0001");
    CUsbFtd2xxCom other;
    other.load();
    EXPECT_EQ(other.open_by_index(0), 0x3010203Fu) << "in use";
    EXPECT_EQ(com.close(), JV_OK);
    EXPECT_FALSE(com.is_open());
    EXPECT_EQ(com.close(), JV_ERR_COM_NOT_OPEN);
    unsigned char byte = 0;
    EXPECT_EQ(com.read(&byte, 1), JV_ERR_COM_NOT_OPEN);
    EXPECT_EQ(com.write(&byte, 1), JV_ERR_COM_NOT_OPEN);
    EXPECT_EQ(other.open_by_index(0), JV_OK);
}

TEST_F(Ftd2xxCom, ClosesAtItsEnd) {
    {
        CUsbFtd2xxCom passing;
        ASSERT_EQ(passing.open_by_index(0), JV_OK);
        EXPECT_EQ(CUsbFtd2xxCom::get_com_info_by_index(0)->in_use, 1);
    }
    EXPECT_EQ(CUsbFtd2xxCom::get_com_info_by_index(0)->in_use, 0);
}

TEST_F(Ftd2xxCom, CannotBeOpenedAnyOtherWay) {
    ASSERT_EQ(com.open_by_index(0), JV_OK);
    std::string text = "JV-0001";
    EXPECT_EQ(com.open_by_name(text), 0x30100011u);
    EXPECT_EQ(com.open_by_sn(text), 0x30100011u);
    EXPECT_EQ(com.open_by_location(0x11), 0x30100011u);
    EXPECT_EQ(com.open_by_tcpip(text, 80), 0x30100011u);
    EXPECT_TRUE(com.is_open());
}

TEST_F(Ftd2xxCom, DropsWhatCameBeforeItWasOpened) {
    board.send("01 02 03");
    ASSERT_EQ(com.open_by_index(0), JV_OK);
    board.send("04 05");
    ASSERT_TRUE(eventually([&] { return com.wait_for_rx_bytes(); }));
    EXPECT_EQ(com.read_input_data(), (byte_vector{4, 5}));
    EXPECT_EQ(com.get_rx_bytes(), 2u);
    EXPECT_EQ(com.close(), JV_OK);
    EXPECT_EQ(com.get_rx_bytes(), 0u);
}

TEST_F(Ftd2xxCom, DeliversALongQueueInPiecesAndLosesNothing) {
    byte_vector sent(200000);
    for (std::size_t i = 0; i < sent.size(); ++i)
        sent[i] = static_cast<unsigned char>(i * 31 + i / 256);
    ASSERT_EQ(com.open_by_index(0), JV_OK);
    board->send_raw(sent);
    byte_vector received;
    EXPECT_TRUE(eventually([&] {
        com.wait_for_rx_bytes();
        EXPECT_LE(com.get_rx_bytes(), 65536u);
        const byte_vector bytes = com.read_input_data();
        received.insert(received.end(), bytes.begin(), bytes.end());
        return received.size() >= sent.size();
    }));
    EXPECT_EQ(received, sent);
    EXPECT_EQ(com.get_rx_bytes(), 200000u - 3 * 65536u);
    EXPECT_EQ(com.get_cp_listening_loop_with_data(), 4);
}

TEST_F(Ftd2xxCom, CountsItsPassesAnewAfterEachOpening) {
    for (int round = 0; round < 2; ++round) {
        ASSERT_EQ(com.open_by_index(0), JV_OK);
        const steady::time_point start = steady::now();
        EXPECT_LT(com.get_cp_listening_loop(), 4);
        EXPECT_TRUE(eventually([&] { return com.get_cp_listening_loop() >= 4; }));
        EXPECT_GE(milliseconds_since(start), 3 * 50 - 25) << "about twenty passes a second";
        EXPECT_EQ(com.get_cp_listening_loop_with_data(), 0);
        board.send("01");
        EXPECT_TRUE(eventually([&] { return com.get_cp_listening_loop_with_data() == 1; }));
    }
}

// A purge may come between the listening thread's look at the queue and its read, which then must not wait for bytes
// that are gone.
TEST_F(Ftd2xxCom, ClosesAtOnceHoweverPurgesAndArrivalsMeet) {
    for (int round = 0; round < 100; ++round) {
        ASSERT_EQ(com.open_by_index(0), JV_OK);
        std::thread sender([&] {
            for (int i = 0; i < 20; ++i)
                board.send("01 02 03 04");
        });
        com.purge_rx();
        sender.join();
        const steady::time_point start = steady::now();
        EXPECT_EQ(com.close(), JV_OK);
        ASSERT_LT(milliseconds_since(start), 2000);
    }
}

} // namespace
} // namespace jorvet::testing
