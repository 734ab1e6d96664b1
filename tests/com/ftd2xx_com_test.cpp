// The FTDI link over simulated bridges: the device list, opening and closing, receiving.
#include <deque>

#include "jorvet/com/usb_ftd2xx_com.h"
#include "tests/support/connected_board.h"

namespace jorvet::testing {
namespace {

using list = CUsbFtd2xxCom;

std::deque<plugged_board> plug_in(unsigned count) {
    std::deque<plugged_board> boards;
    for (unsigned i = 0; i < count; ++i)
        boards.emplace_back(
            sim::bridge_options{"S" + std::to_string(i), i % 2 == 0 ? "even" : "Odd", 8, 100 + i % 3, 7 + i / 2});
    return boards;
}

template <class Records>
std::string places(const Records& records) {
    std::string text;
    for (const auto& record : records)
        text += std::to_string(record->index) + ' ';
    return text;
}

TEST(Ftd2xxList, HoldsEveryBridgeInOrder) {
    for (const unsigned count : {0u, 2u, 20u, 25u}) {
        const auto boards = plug_in(count);
        const auto records = list::get_all_com_info_list();
        ASSERT_EQ(records.size(), count);
        for (unsigned i = 0; i < count; ++i) {
            const CUsbFtd2xxComInfo& record = *records[i];
            EXPECT_TRUE(record.serial_number == "S" + std::to_string(i) && record.index == i && record.com_type == 0);
            EXPECT_TRUE(record.description == (i % 2 == 0 ? "even" : "Odd") && record.flags == 0 && record.in_use == 0);
            EXPECT_TRUE(record.type == 8 && record.id == 100 + i % 3 && record.loc_id == 7 + i / 2);
        }
        for (const char* function : {"FT_CreateDeviceInfoList", "FT_GetDeviceInfoList"})
            EXPECT_TRUE(with_fault(function, 1, 19, list::get_all_com_info_list).empty()) << "no error, but no device";
    }
}

TEST(Ftd2xxList, IsLookedUpExactly) {
    const auto boards = plug_in(4);
    EXPECT_EQ(list::get_com_info_by_index(1)->serial_number, "S1");
    EXPECT_EQ(list::get_com_info_by_index(4)->com_type, 0xFF);
    EXPECT_EQ(places(list::get_com_info_by_name("Odd")), "1 3 ");
    EXPECT_EQ(places(list::get_com_info_by_name("odd")) + places(list::get_com_info_by_name("Od")), "");
    EXPECT_EQ(places(list::get_com_info_by_id(100)), "0 3 ");
    EXPECT_EQ(places(list::get_com_info_by_id(99)), "");
    EXPECT_EQ(places(list::get_com_info_by_sn("S2")), "2 ");
    EXPECT_EQ(places(list::get_com_info_by_sn("s2")), "");
    EXPECT_EQ(list::get_com_info_by_locid(7)->index, 1u) << "the last of two";
    EXPECT_EQ(list::get_com_info_by_locid(9)->com_type, 0xFF);
}

struct Ftd2xxCom : ::testing::Test {
    void SetUp() override { com.load(); }

    plugged_board board;
    CUsbFtd2xxCom com;
    unsigned char byte = 0;
};

TEST_F(Ftd2xxCom, IsOpenedByItsPlaceAloneAndForOneOwner) {
    EXPECT_EQ(com.get_com_info()->com_type, 0xFF);
    EXPECT_EQ(com.open_by_index(1), 0x3010203Eu);
    EXPECT_EQ(com.get_com_handle(), nullptr);
    ASSERT_EQ(com.open_by_index(0), JV_OK);
    EXPECT_TRUE(com.get_com_info()->in_use == 1 && com.get_com_info()->com_type == 0);
    std::string text = "JV-0001";
    for (const unsigned status :
         {com.open_by_name(text), com.open_by_sn(text), com.open_by_location(0x11), com.open_by_tcpip(text, 80)})
        EXPECT_EQ(status, 0x30100011u);
    {
        CUsbFtd2xxCom other;
        other.load();
        EXPECT_EQ(other.open_by_index(0), 0x3010203Fu);
        EXPECT_EQ(com.close(), JV_OK);
        EXPECT_EQ(other.open_by_index(0), JV_OK);
    }
    EXPECT_EQ(list::get_com_info_by_index(0)->in_use, 0) << "closed with its owner";
    for (const unsigned status : {com.close(), com.read(&byte, 1), com.write(&byte, 1), com.start_listening_thread()})
        EXPECT_EQ(status, 0x30101000u);
}

TEST_F(Ftd2xxCom, MapsTheStatusesOfTheDriver) {
    ASSERT_EQ(com.open_by_index(0), JV_OK);
    for (unsigned status = 1; status <= 19; ++status)
        EXPECT_EQ(with_fault("FT_Write", 1, status, [&] { return com.write(&byte, 1); }), 0x3010203D + (status - 1));
    for (const unsigned unknown : {20u, 0x7777u, 0x10000u})
        EXPECT_EQ(with_fault("FT_Write", 1, unknown, [&] { return com.write(&byte, 1); }), 0u);
    EXPECT_EQ(with_fault("FT_Purge", 1, 4, [&] { return com.purge_rx(); }), 4u) << "as it comes";
}

TEST_F(Ftd2xxCom, DropsWhatCameBeforeAndTellsOnceOfWhatComesAfterItsOpening) {
    board.send("01 02 03");
    const steady::time_point start = steady::now();
    ASSERT_EQ(com.open_by_index(0), JV_OK);
    EXPECT_FALSE(com.wait_for_rx_bytes());
    EXPECT_GE(milliseconds_since(start), 30);
    for (unsigned short delivery = 1; delivery <= 2; ++delivery) {
        EXPECT_EQ(com.get_cp_listening_loop_with_data(), delivery - 1);
        board.send(delivery == 1 ? "04" : "05 06");
        ASSERT_TRUE(eventually([&] { return com.get_cp_listening_loop_with_data() == delivery; }));
    }
    EXPECT_EQ(com.get_rx_bytes(), 2u);
    const long long idle = fastest_of(3, [&] {
        const unsigned passes = com.get_cp_listening_loop();
        EXPECT_TRUE(eventually([&] { return com.get_cp_listening_loop() >= passes + 2; }));
    });
    EXPECT_TRUE(idle >= 45 && idle < 195) << "twenty passes a second";
    EXPECT_TRUE(com.wait_for_rx_bytes());
    EXPECT_FALSE(com.wait_for_rx_bytes()) << "nothing came since";
    EXPECT_EQ(com.read_input_data(), (byte_vector{4, 5, 6}));
    EXPECT_TRUE(com.read_input_data().empty());
    EXPECT_EQ(com.start_listening_thread(), JV_OK) << "ends the one that listens";
    board.send("07");
    EXPECT_TRUE(com.get_cp_listening_loop() < 4 && eventually([&] { return com.get_rx_bytes() == 1; }));
    EXPECT_EQ(com.close(), JV_OK);
    EXPECT_TRUE(com.get_rx_bytes() == 0 && com.read_input_data().empty());
}

// A driver that fails to count its bytes is taken to have none, one whose status is unknown to be well, and one that
// claims to have read does not leave what was in memory.
TEST_F(Ftd2xxCom, GoesOnWhenTheDriverDoesNotKnow) {
    const struct {
        const char* function;
        unsigned error;
        byte_vector received;
    } rows[] = {{"FT_GetQueueStatus", 4, {1, 2}}, {"FT_GetStatus", 0x7777, {1, 2}}, {"FT_Read", 20, {0xEE, 1, 2}}};
    for (const auto& row : rows) {
        ASSERT_EQ(com.open_by_index(0), JV_OK);
        const compat::faults::scope armed(row.function, 1, row.error);
        board.send("01");
        ASSERT_TRUE(eventually([&] { return compat::faults::calls_seen() > 0; }));
        board.send("02");
        byte_vector received;
        const auto complete = [&] {
            const byte_vector more = com.read_input_data();
            received.insert(received.end(), more.begin(), more.end());
            return received.size() >= row.received.size();
        };
        EXPECT_TRUE(eventually(complete)) << row.function;
        EXPECT_EQ(received, row.received) << row.function;
        EXPECT_LE(com.get_cp_listening_loop_with_data(), 2);
    }
    EXPECT_EQ(with_fault("FT_SetEventNotification", 1, 20, [&] { return com.open_by_index(0); }), 0x3010204Eu);
}

TEST_F(Ftd2xxCom, EndsAndClosesByItselfWhenTheBridgeFails) {
    for (const char* function : {"FT_GetStatus", "FT_Read"}) {
        ASSERT_EQ(com.open_by_index(0), JV_OK);
        board.send("01");
        ASSERT_TRUE(eventually([&] { return com.get_rx_bytes() == 1; }));
        const std::string before = board.bridge->calls();
        std::atomic<bool> announced{true}; // what came before, while the link closes
        compat::faults::run_before("FT_Close", [&] { announced = com.wait_for_rx_bytes(); });
        with_fault(function, 1, 4, [&] {
            board.send("02");
            EXPECT_TRUE(eventually([&] { return !com.is_open(); }));
        });
        EXPECT_FALSE(announced);
        EXPECT_EQ(board.bridge->calls(), before + "purge tx, purge rx, reset, closed, ");
        EXPECT_TRUE(com.get_rx_bytes() == 0 && com.read_input_data().empty() && !com.wait_for_rx_bytes());
    }
    ASSERT_EQ(com.open_by_index(0), JV_OK);
    EXPECT_EQ(with_fault("FT_Close", 1, 18, [&] { return com.open_by_index(0); }), 0x3010204Eu) << "nothing new opens";
    EXPECT_TRUE(com.is_open() && board.bridge->opens() == 3);
}

TEST_F(Ftd2xxCom, DeliversALongQueueInPiecesAndLosesNothing) {
    byte_vector sent(200000);
    for (std::size_t i = 0; i < sent.size(); ++i)
        sent[i] = static_cast<unsigned char>(i * 31 + i / 256);
    ASSERT_EQ(com.open_by_index(0), JV_OK);
    board->send_raw(sent);
    ASSERT_TRUE(eventually([&] { return com.get_cp_listening_loop_with_data() == 4; }));
    EXPECT_EQ(com.get_rx_bytes(), 200000u - 3 * 65536u);
    EXPECT_EQ(com.read_input_data(), sent);
}

// A purge may come between the listening thread's look at the queue and its read, which must not wait for what is gone.
TEST_F(Ftd2xxCom, ClosesHoweverPurgesAndArrivalsMeet) {
    for (int round = 0; round < 60; ++round) {
        ASSERT_EQ(com.open_by_index(0), JV_OK);
        std::thread sender([&] {
            for (int i = 0; i < 20; ++i)
                board.send("01 02 03 04");
        });
        com.purge_rx();
        EXPECT_EQ(com.close(), JV_OK);
        sender.join();
    }
}

} // namespace
} // namespace jorvet::testing
