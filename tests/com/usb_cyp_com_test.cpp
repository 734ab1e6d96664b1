// The Cypress link over simulated controllers: the device list, opening and closing, receiving, the descriptor report.
#include <fstream>
#include <iomanip>
#include <sstream>

#include "jorvet/com/descriptor_report.h"
#include "jorvet/com/link_extras.h"
#include "jorvet/com/usb_cyp_com.h"
#include "tests/support/connected_board.h"

namespace jorvet::testing {
namespace {

using list = CUsbCypCom;
using ports::usb_end;

sim::transfer_plan ends(usb_end end, std::optional<std::size_t> after = {}) {
    sim::transfer_plan plan;
    plan.end = end;
    plan.after = after;
    return plan;
}

// A second device beside the usual one.
sim::controller_options second_of(Behind behind) {
    sim::controller_options options = controller_options(behind);
    options.serial_number = "JV-1002";
    options.friendly_name = "another";
    options.product_id = 0x1234;
    return options;
}

// Configuration 1 with these descriptors of an interface and its endpoints.
sim::controller_options configured(Behind behind, unsigned configurations, const char* entries) {
    sim::controller_options options = controller_options(behind);
    options.descriptors = sim::board_descriptors(options.speed, options.vendor_id, options.product_id, "1");
    options.descriptors->device[17] = static_cast<unsigned char>(configurations);
    byte_vector whole = from_hex("09 02 00 00 01 01 00 80 FA");
    for (const unsigned char byte : from_hex(entries))
        whole.push_back(byte);
    whole[2] = static_cast<unsigned char>(whole.size());
    options.descriptors->configurations = {whole};
    return options;
}

TEST(CypressList, HoldsEveryDeviceWithWhatItSaysOfItself) {
    const plugged_board first(Behind::high_speed_controller), other(second_of(Behind::super_speed_controller));
    other.controller->refuse_open(true);
    EXPECT_TRUE(list::get_com_info_by_name("another").empty()) << "nothing is known of one that does not open";
    const auto refused = list::get_com_info_by_index(1);
    EXPECT_TRUE(refused->com_type == 1 && refused->index == 1 && refused->in_use == 1 && refused->vendor_id == 0);
    other.controller->refuse_open(false);
    const auto records = list::get_all_com_info_list();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_TRUE(records[0]->description == "Jorvet simulated USB board" && records[0]->product_id == 0x00F1);
    EXPECT_TRUE(records[0]->high_speed == 1 && records[0]->super_speed == 0 && records[0]->in_use == 0);
    EXPECT_TRUE(records[1]->vendor_id == 0x04B4 && records[1]->product_id == 0x1234 && records[1]->com_type == 1);
    EXPECT_TRUE(records[1]->high_speed == 0 && records[1]->super_speed == 1 && records[1]->serial_number.empty());
    EXPECT_EQ(list::get_com_info_by_name("another").at(0)->index, 1u);
    EXPECT_EQ(list::get_com_info_by_sn("").size(), 2u);
    EXPECT_EQ(list::get_com_info_by_index(2)->com_type, 0xFF);
    EXPECT_EQ(first.controller->state().handles + other.controller->state().handles, 0u) << "closed again";
}

std::string printed_by(CUsbCypCom& com) {
    std::ostringstream text;
    std::streambuf* const usual = std::cout.rdbuf(text.rdbuf());
    com.print_info();
    std::cout.rdbuf(usual);
    return text.str();
}

TEST(WithoutACypressDevice, NothingIsListedAndNothingOpens) {
    CCyUSBDevice device(nullptr, CYUSBDRV_GUID, 1);
    EXPECT_TRUE(device.DeviceCount() == 0 && !device.Open(0) && device.DeviceHandle == INVALID_HANDLE_VALUE);
    EXPECT_TRUE(!device.Reset() && device.PowerState() == 0 && device.EndPointOf(0) == nullptr);
    EXPECT_TRUE(list::get_all_com_info_list().empty() && list::get_com_info_by_index(0)->com_type == 0xFF);
    CUsbCypCom com;
    EXPECT_EQ(com.open_by_index(0), 0x30103003u);
    EXPECT_EQ(printed_by(com), "");
}

TEST(CypressOpening, TellsWhyThereIsNoLink) {
    CUsbCypCom com;
    unsigned char byte = 0;
    const char* no_out = "09 04 00 00 01 FF 00 00 00 07 05 81 02 00 02 00";
    const char* no_in = "09 04 00 00 01 FF 00 00 00 07 05 02 02 00 02 00";
    for (const auto& [configurations, entries] : {std::pair{1, no_out}, {1, no_in}, {0, ""}, {1, ""}}) {
        const plugged_board board(configured(Behind::high_speed_controller, configurations, entries));
        EXPECT_EQ(com.open_by_index(0), 0x30103000u) << entries;
        EXPECT_TRUE(!com.is_open() && com.get_com_info()->in_use == 0 && com.get_com_info()->com_type == 0xFF);
        EXPECT_EQ(board.controller->state().port_resets, configurations == 1 && *entries != '\0' ? 0u : 1u);
    }
    const plugged_board board(Behind::high_speed_controller);
    EXPECT_EQ(com.open_by_index(1), 0x30103003u);
    ASSERT_EQ(com.open_by_index(0), JV_OK);
    EXPECT_TRUE(com.is_open() && com.get_com_info()->in_use == 1 && com.get_com_info()->com_type == 0xFF);
    ASSERT_EQ(com.open_by_index(0), JV_OK) << "an open link is closed first";
    EXPECT_EQ(com.get_cp_listening_loop(), 0) << "counted anew";
    const unsigned resets = board.controller->state().endpoint_resets;
    EXPECT_EQ(resets, 3u + 2 + 3) << "of both endpoints at the start and the end, and when listening begins";
    EXPECT_EQ(com.close(), JV_OK);
    EXPECT_EQ(board.controller->state().endpoint_resets, resets + 2);
    EXPECT_EQ(board.controller->state().handles, 1u) << "held until the next opening";
    EXPECT_EQ(with_fault("CloseHandle", 1, 6, [&] { return com.open_by_index(0); }), 0x30103003u);
    EXPECT_EQ(com.extras().detail(), "Failed to close handle to driver.");
    board.controller->refuse_open(true);
    EXPECT_EQ(com.open_by_index(0), 0x30103003u);
    for (const unsigned status : {com.close(), com.read(&byte, 1), com.write(&byte, 1), com.start_listening_thread()})
        EXPECT_EQ(status, 0x30101000u);
    std::string text;
    EXPECT_TRUE(com.open_by_name(text) == 0x30100011 && com.open_by_sn(text) == 0x30100011);
    EXPECT_TRUE(com.open_by_location(0) == 0x30100011 && com.open_by_tcpip(text, 1) == 0x30100011);
}

struct CypressCom : ::testing::TestWithParam<Behind> {
    void SetUp() override { ASSERT_EQ(com.open_by_index(0), JV_OK); }
    void expect_received(const byte_vector& bytes) {
        byte_vector all;
        EXPECT_TRUE(eventually([&] {
            const auto more = com.read_input_data();
            all.insert(all.end(), more.begin(), more.end());
            return all.size() >= bytes.size();
        })) << all.size();
        EXPECT_EQ(all, bytes);
    }

    plugged_board board{GetParam()};
    CUsbCypCom com;
};

TEST_P(CypressCom, ReceivesEveryByteHoweverItIsCutAndAfterAnySilence) {
    byte_vector sent(200000);
    for (std::size_t i = 0; i < sent.size(); ++i)
        sent[i] = static_cast<unsigned char>(i * 31 + i / 256);
    board->send_raw(sent);
    expect_received(sent);
    for (const std::size_t size : {1, 511, 512, 513, 1024, 65535, 65536, 65537}) {
        std::this_thread::sleep_for(milliseconds(12)); // an idle SuperSpeed link goes round twice
        const byte_vector piece(sent.begin(), sent.begin() + static_cast<std::ptrdiff_t>(size));
        board->send_raw(piece);
        expect_received(piece);
    }
    EXPECT_EQ(board.controller->state().overrun_bytes, 0u);
}

TEST_P(CypressCom, GoesRoundEvery5MsOnAnIdleSuperSpeedLinkAlone) {
    const long long time = fastest_of(3, [&] {
        const unsigned passes = com.get_cp_listening_loop();
        eventually([&] { return com.get_cp_listening_loop() >= passes + 10; }, 150);
    });
    EXPECT_GE(time, 45);
    EXPECT_EQ(time < 150, GetParam() == Behind::super_speed_controller);
}

TEST_P(CypressCom, ReceivesFirstWhatTheControllerHadQueuedBeforeTheOpening) {
    const plugged_board another(second_of(GetParam()));
    another.send("01 02");
    ASSERT_EQ(com.open_by_index(1), JV_OK);
    another.send("03");
    expect_received({1, 2, 3});
    another.send("04");
    EXPECT_TRUE(eventually([&] { return com.get_rx_bytes() == 1; }));
    EXPECT_TRUE(com.close() == JV_OK && com.get_rx_bytes() == 0 && com.read_input_data().empty());
}

TEST_P(CypressCom, SeesAReplyThatFillsItsLastPacketWithTheNextBytesOrOnAnIdleSuperSpeedLink) {
    board.controller->send_zero_length_packets(false);
    byte_vector bytes(2048, 0x5A);
    board->send_raw(bytes);
    if (GetParam() == Behind::high_speed_controller) {
        std::this_thread::sleep_for(milliseconds(20)); // longer than an idle SuperSpeed link waits
        EXPECT_TRUE(com.read_input_data().empty());
        board.send("01");
        bytes.push_back(1);
    }
    expect_received(bytes);
}

TEST_P(CypressCom, DeliversWhatAFailedTransferBroughtAndThenListensNoMore) {
    for (const usb_end end : {usb_end::failed, usb_end::babble, usb_end::stalled}) {
        const plugged_board another(second_of(GetParam()));
        ASSERT_EQ(com.open_by_index(1), JV_OK);
        EXPECT_EQ(com.get_cp_listening_loop_with_data(), 0);
        another.controller->plan_transfer(0x81, ends(end, 3));
        another.send("01 02 03 04");
        expect_received({1, 2, 3});
        another.send("05");
        std::this_thread::sleep_for(milliseconds(20));
        EXPECT_TRUE(com.is_open() && com.read_input_data().empty());
        EXPECT_EQ(another.controller->state().endpoint_resets, 4u) << "three when it was opened";
    }
}

TEST_P(CypressCom, EndsOnUnplugWhileIdleAndWritingAndOpensTheNextDevice) {
    board.controller->stall_writes_after(2);
    board->unplug(milliseconds(20));
    byte_vector bytes(10);
    const steady::time_point start = steady::now();
    EXPECT_EQ(com.write(bytes.data(), 10), 0x30103002u);
    EXPECT_EQ(com.write(bytes.data(), 10), 0x30103002u);
    EXPECT_TRUE(com.is_open());
    EXPECT_EQ(com.close(), JV_OK);
    EXPECT_LT(milliseconds_since(start), 4000) << "did not wait for the write's own limit";
    const plugged_board another(GetParam());
    EXPECT_EQ(com.open_by_index(0), JV_OK);
    EXPECT_EQ(com.write(bytes.data(), 10), JV_OK);
}

TEST(CypressPurge, EndsReceivingWhenTheDriverReportsACancelledTransferAsFailed) {
    for (const usb_end end : {usb_end::cancelled, usb_end::failed}) {
        sim::controller_options options = controller_options(Behind::high_speed_controller);
        options.end_when_aborted = end;
        const plugged_board board(options);
        CUsbCypCom com;
        ASSERT_EQ(com.open_by_index(0), JV_OK);
        const auto receives = [&] {
            board.send("0A");
            return eventually([&] { return !com.read_input_data().empty(); }, 200);
        };
        EXPECT_TRUE(receives());
        EXPECT_EQ(com.purge_rx(), JV_OK);
        EXPECT_EQ(receives(), end == usb_end::cancelled);
        EXPECT_EQ(com.open_by_index(0), JV_OK);
        EXPECT_TRUE(receives()) << "again after a connect";
    }
}

TEST(CypressWrite, IsGivenUpWhenTheDeviceDoesNotTakeIt) {
    const plugged_board board(Behind::high_speed_controller);
    CUsbCypCom com;
    ASSERT_EQ(com.open_by_index(0), JV_OK);
    board.controller->stall_writes_after(2);
    board.controller->plan_aborts({1, 2, {}});
    byte_vector bytes(10);
    const steady::time_point start = steady::now();
    EXPECT_EQ(com.write(bytes.data(), 10), 0x30103002u);
    const steady::time_point after_a_timeout = steady::now();
    EXPECT_EQ(com.write(bytes.data(), 0x80000000), 0x30103002u); // no length of a transfer
    EXPECT_LT(milliseconds_since(after_a_timeout), 1000);
    EXPECT_TRUE(milliseconds_since(start) >= 4900 && milliseconds_since(start) < 9000);
    board.controller->accept_writes();
    EXPECT_EQ(com.write(bytes.data(), 10), JV_OK);
}

// Aborts are refused once or twice, or end their transfer late.
TEST_P(CypressCom, LosesNothingAndEndsWhateverBecomesOfItsNthAbort) {
    for (const sim::abort_plan& kind : {sim::abort_plan{1, 1, {}}, {1, 2, {}}, {1, 2, milliseconds(20)}}) {
        for (sim::abort_plan plan = kind; plan.first <= 16; ++plan.first) {
            SCOPED_TRACE(std::to_string(plan.first) + " " + std::to_string(plan.late.count()));
            const plugged_board another(second_of(GetParam()));
            another.controller->plan_aborts(plan);
            const steady::time_point start = steady::now();
            ASSERT_EQ(com.open_by_index(1), JV_OK);
            std::this_thread::sleep_for(milliseconds(GetParam() == Behind::super_speed_controller ? 12 : 0));
            another.send("01 02 03");
            expect_received({1, 2, 3});
            ASSERT_EQ(com.close(), JV_OK);
            ASSERT_LT(milliseconds_since(start), 2000);
            ASSERT_LT(another.controller->state().aborts, GetParam() == Behind::super_speed_controller ? 1000u : 16u);
        }
    }
}

// Wherever a call behind the listening thread fails, opening and closing end, and the next opening works.
TEST_P(CypressCom, SurvivesTheFailureOfAnyCallOfThePlatform) {
    const std::pair<const char*, unsigned> calls[] = {
        {"DeviceIoControl", 40}, {"CreateEventA", 28}, {"CreateFileA", 1},        {"WaitForSingleObject", 4},
        {"CloseHandle", 4},      {"SetupDi*", 8},      {"GetOverlappedResult", 4}};
    for (const auto& [function, count] : calls) {
        for (unsigned nth = 1; nth <= count; ++nth) {
            SCOPED_TRACE(function + std::to_string(nth));
            com.close();
            const steady::time_point start = steady::now();
            with_fault(function, nth, ERROR_GEN_FAILURE, [&, name = function] {
                unsigned char byte = 1;
                try {
                    com.open_by_index(0);
                } catch (const boost::thread_resource_error&) {
                    EXPECT_STREQ(name, "CreateEventA");
                }
                com.write(&byte, 1);
                return com.close();
            });
            ASSERT_LT(milliseconds_since(start), 2000);
        }
        ASSERT_EQ(com.open_by_index(0), JV_OK) << function;
        board.send("0A");
        expect_received({0x0A});
    }
}

INSTANTIATE_TEST_SUITE_P(, CypressCom,
                         ::testing::Values(Behind::high_speed_controller, Behind::super_speed_controller));

TEST_P(CypressCom, ReportsItsDescriptorsAsStored) {
    const bool super_speed = GetParam() == Behind::super_speed_controller;
    std::ifstream stored(super_speed ? STORED_REPORTS "/super_speed.txt" : STORED_REPORTS "/high_speed.txt");
    std::ostringstream expected;
    expected << stored.rdbuf();
    EXPECT_EQ(printed_by(com), expected.str());
    EXPECT_TRUE(std::cout.flags() & std::ios::hex) << "the stream stays so";
    std::cout << std::uppercase << std::showbase << std::left << std::setw(9) << std::setfill('-') << std::oct;
    EXPECT_EQ(printed_by(com), expected.str());
    std::cout.copyfmt(std::ostringstream());
}

} // namespace
} // namespace jorvet::testing
