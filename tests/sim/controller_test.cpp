// The controller as the driver sees it: descriptors and standard requests, how transfers end, and how they race.
#include <gtest/gtest.h>

#include <future>
#include <sstream>

#include "jorvet/sim/script.h"
#include "jorvet/sim/usb/controller.h"
#include "tests/sim/recording_link.h"

namespace jorvet::sim {
namespace {

const byte_vector get_mode = from_hex("90320000000000");
const std::string mode_2 = "80A000000102"; // the answer
const char* const end_names[] = {"ok", "stalled", "babble", "cancelled", "timed out", "failed", "no endpoint", "gone"};

// Transfers have names. Each end stands in `ends`: name, bytes from the device or count to it, packets, how it ended.
class ControllerTest : public ::testing::Test {
  protected:
    ControllerTest() { plug_in(); }
    ~ControllerTest() override { controller->unplug(); }
    void plug_in() {
        if (controller)
            controller->unplug();
        controller = simulated_controller::plug_in(options);
        controller->open();
    }
    ports::usb_completion tell(const std::string& name, bool inbound) {
        return [=](const ports::usb_result& r) {
            std::string text = name + " " + (inbound ? to_hex(r.data, r.count) : std::to_string(r.count)) + " ";
            for (const auto& packet : r.packets)
                text += std::to_string(packet.length) + end_names[static_cast<int>(packet.end)] + " ";
            ends.add(text + end_names[static_cast<int>(r.end)]);
        };
    }
    void in(const std::string& name, std::size_t room, std::uint8_t endpoint = 0x81) {
        controller->submit({endpoint, nullptr, room, 2}, tell(name, true));
    }
    void out(const std::string& name, byte_vector bytes, std::uint8_t endpoint = 2) {
        controller->submit({endpoint, bytes.data(), bytes.size(), 2}, tell(name, false));
    }
    void control(const std::string& setup, byte_vector sent = {},
                 unsigned timeout_ms = 0) { // "c", the setup as on the bus
        const byte_vector b = from_hex(setup);
        const auto word = [&](std::size_t at) { return static_cast<std::uint16_t>(b[at] | b[at + 1] << 8); };
        controller->control({b[0], b[1], word(2), word(4), word(6)}, sent.data(), timeout_ms, tell("c", b[0] >= 0x80));
    }
    void plan(const std::string& line) { parse_script_line("transfer " + line)(*controller); }

    controller_options options;
    RecordingLink ends;
    std::shared_ptr<simulated_controller> controller;
};

TEST_F(ControllerTest, StandardRequestsAreAnsweredAsTheSpeedAsks) {
    const std::pair<ports::usb_speed, const char*> table[] = {
        {ports::usb_speed::high, R"(8006000100000900 120100020000 0040 B4 ok 8006000F0000FF00 stalled
            8006000200000002 090253000101008032 0904000002FF000000 07058102000200 07050202000200 0904000106FF000000
            07058102000200 07050202000200 07058303000404 07050403000404 07058501001404 07050601001404 ok
            8006000334120600 060307040904 ok 800603030904FF00 10034A0056002D003100300030003100 ok
            8006010307040600 0E034A006F00 ok 800604030904FF00 stalled 800601030804FF00 stalled
            800601020000FF00 stalled 8200000083000200 stalled 010B020000000000 0 stalled 010B010000000000 0 ok
            810A000000000100 01 ok 0203000083000000 0 ok 8200000083000200 0100 ok 0201000083000000 0 ok
            8200000083000200 0000 ok 0009020000000000 0 stalled 0009000000000000 0 ok 8008000000000100 00 ok
            810A000000000100 stalled 8200000081000200 stalled 0009010000000000 0 ok 810A000000000100 00 ok)"},
        {ports::usb_speed::super, R"(8006000100001200 120100030000 0009 B404F1000001 010203 01 ok
            8006000200002600 090283000101008032 0904000002FF000000 07058102000400 06300F000000 07050202000400 ok
            8006000F0000FF00 050F2A0003 07100202000000 0A1003000E00010AFF07 14100400 4A562D31303031 000000000000000000 ok)"}};
    for (const auto& [speed, session] : table) {
        options.speed = speed, plug_in();
        std::istringstream words(session);
        for (std::string request, word; words >> request;) {
            std::string answer = "c ";
            while (words >> word && word != "ok" && word != "stalled")
                answer += word;
            control(request);
            EXPECT_EQ(ends.take(1), Pieces{answer + " " + word}) << request;
        }
    }
}

TEST_F(ControllerTest, PiecesFromTheBoardEndTransfersAndNoneIsLostButBeyondTheQueue) {
    options.queue_capacity = 16, plug_in();
    in("a", 4), in("b", 4), in("c", 4);
    controller->board().send_raw({1, 2, 3, 4, 5, 6});
    plan("0x81 stall"), in("d", 4); // the plan is for "c", the oldest pending one
    controller->reset_endpoint(0x81), in("e", 4), controller->abort(0x81);
    controller->board().send_raw({7, 8, 9}), controller->board().send_raw(byte_vector(15, 0x11));
    EXPECT_EQ(controller->state().overrun_bytes, 2u);
    in("f", 2), in("g", 2), in("h", 9), in("i", 0), in("j", 8);
    EXPECT_EQ(ends.take(0), (Pieces{"a 01020304 ok", "b 0506 ok", "c  stalled", "d  stalled", "e  cancelled",
                                    "f 0708 ok", "g 09 ok", "h 111111111111111111 ok", "i  ok", "j 11111111 ok"}));
}

TEST_F(ControllerTest, BytesToTheBoardWaitForItsAllowanceInOrder) {
    controller->stall_writes_after(1), out("x", get_mode), plan("2 fail"), controller->stall_writes_after(2);
    out("a", {0x32, 0, 0}), controller->abort(2);
    out("c", {0, 0, 0, 0}), out("d", get_mode), in("e", 64);
    controller->stall_writes_after(6), controller->accept_writes();
    EXPECT_EQ(ends.take(0), (Pieces{"x 1 failed", "a 2 cancelled", "e " + mode_2 + " ok", "c 4 ok", "d 7 ok"}));
}

TEST_F(ControllerTest, PlansDecideHowTransfersEndOnEndpointsOfTheSetting) {
    const char* const table[][3] = {
        // the plan for one transfer; its end and that of the next, while 010203 come
        {"0x81 fail 2", "a 0102 failed", "b 03 ok"},
        {"0x83 data 0102030405", "a 01020304 babble", "b  cancelled"},
        {"0x85 data 01", "a 01 1ok 0ok ok", "b  0ok 0ok ok"},
        {"0x02 fail 3", "a 3 failed", "b 4 ok"},
        {"0x04 short 1 stall", "a 1 stalled", "b 0 stalled"},
        {"0x06 short 4", "a 4 4ok 0ok ok", "b 4 4ok 0ok ok"},
        {"0x07", "a 0 no endpoint", "b 0 no endpoint"},
    };
    for (const auto& row : table) {
        plug_in(), in("old", 4);
        EXPECT_EQ(controller->select_alternate(1), ports::port_status::ok);
        plan(row[0]);
        const auto endpoint = static_cast<std::uint8_t>(std::stoi(row[0], nullptr, 16));
        for (const char* const name : {"a", "b"})
            endpoint >= 0x80 ? in(name, 4, endpoint) : out(name, {1, 2, 3, 4}, endpoint);
        controller->board().send_raw({1, 2, 3}), controller->abort(endpoint);
        EXPECT_EQ(ends.take(0), (Pieces{"old  cancelled", row[1], row[2]})) << row[0];
    }
}

TEST_F(ControllerTest, WhatASuspendedDeviceHasPendingEndsWithItsCause) {
    const std::pair<void (*)(simulated_controller&), Pieces> table[] = {
        {[](simulated_controller& c) { c.close(); }, {"c  cancelled", "a  cancelled", "b 0 cancelled"}},
        {[](simulated_controller& c) { c.reset_port(); }, {"c  cancelled", "a  cancelled", "b 0 cancelled"}},
        {[](simulated_controller& c) { c.board().unplug(); }, {"c  gone", "a  gone", "b 0 gone"}},
        {[](simulated_controller& c) { c.set_power(ports::usb_power::resumed); },
         {"c 01 ok", "a " + mode_2 + " ok", "b 7 ok"}},
    };
    for (const auto& [happen, expected] : table) {
        plug_in(), controller->set_power(ports::usb_power::suspended);
        in("a", 64), out("b", get_mode), control("8008000000000100");
        happen(*controller);
        EXPECT_EQ(ends.take(0), expected);
    }
}

TEST_F(ControllerTest, VendorRequestsGoToTheHandlerInTurnAndSilentOnesTimeOut) {
    controller->set_control_handler([](auto&, const byte_vector& sent) {
        return sent.empty() ? byte_vector{1, 2, 3} : byte_vector();
    });
    plan("0 silent");
    control("C0A0000000000800", {}, 1);
    EXPECT_EQ(ends.take(1), Pieces{"c  timed out"});
    plan("0 delay 20 data 09");
    control("C0A0000000000800"), control("40A0000000000100", {7}), control("C0A0000000000200");
    EXPECT_EQ(ends.take(3), (Pieces{"c 09 ok", "c 1 ok", "c 0102 ok"}));
}

} // namespace
} // namespace jorvet::sim
