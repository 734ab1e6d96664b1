// The C face: scripts, their errors, the trace.
#include <gtest/gtest.h>

#include "jorvet/sim/sim.h"
#include "tests/sim/recording_link.h"

namespace jorvet::sim {
namespace {

class SimTest : public ::testing::Test {
  protected:
    SimTest() : sim(jv_sim_attach_bridge("SN0123456789ABCDEF", nullptr)), port(ports::attached_bridges().back()) {
        port->open({});
        jv_sim_set_trace(sim, &SimTest::trace, &crossed);
    }
    ~SimTest() override { jv_sim_detach(sim); }

    static void trace(void* crossed, int to_host, const unsigned char* bytes, std::size_t count) {
        static_cast<RecordingLink*>(crossed)->add((to_host == 1 ? "<" : ">") + to_hex(bytes, count));
    }
    std::size_t request(const std::string& hex) {
        const byte_vector bytes = from_hex(hex);
        std::size_t written = 0;
        port->write(bytes.data(), bytes.size(), 10, &written);
        return written;
    }

    RecordingLink crossed;
    jv_sim* sim;
    std::shared_ptr<ports::bridge_port> port;
};

TEST_F(SimTest, ScriptLinesDoWhatTheySay) {
    const std::string get_mode = "90320000000000", asked = ">" + get_mode, usual = "<80A000000102";
    const struct {
        const char* script;
        std::string request;
        Pieces crossed;
    } table[] = {
        {"", get_mode, {asked, usual}},
        {"reply status 0x2001 data 0A 0x0b delay 1", get_mode, {asked, "<80200100020A0B"}},
        {"reply crc\nreply crc wrong-crc\r\n", get_mode, {asked, "<81A000000102A687"}},
        {"", get_mode, {asked, "<81A000000102A686"}},
        {"reply crc shifted-crc", get_mode, {asked, "<81A0000001028CE3"}},
        {"replies silent", get_mode, {asked}},
        {"replies no-crc before 11 after 22", "913200000000001EE1", {">913200000000001EE1", "<1180A00000010222"}},
        {" replies ;; reply fragment 4 gap 1", get_mode, {asked, "<80A00000", "<0102"}},
        {"event 7; lose 2; event 0x08 0102", "", {"<400700A0000000", "<400803A00000020102"}},
        {"memory 65534 0102", "9010FFFE020000", {">9010FFFE020000", "<80A00000020102"}},
        {"identifier 0x0203 CAFE", "90110203000000", {">90110203000000", "<80A0000002CAFE"}},
        {"error 0x1234", "90170000000000", {">90170000000000", "<80A000000412342001"}},
        {"stall 3", get_mode, {">903200"}},
        {"stall off", "00000000", {">00000000", usual}},
        {"unplug 60000; reply unplug-after 2", get_mode, {asked, "<80A0"}},
    };
    for (const auto& row : table) {
        ASSERT_EQ(jv_sim_script(sim, row.script), 0) << jv_sim_error();
        if (!row.request.empty())
            request(row.request);
        EXPECT_EQ(crossed.take(row.crossed.size()), row.crossed) << row.script;
    }
    EXPECT_EQ(request(get_mode), 0u) << "unplugged";
}

TEST(SimController, IsScriptedAndDetachedWithWhatTookItsPlace) {
    jv_sim* const sim = jv_sim_attach_controller("A#1", "mine", JV_SIM_SUPER_SPEED);
    EXPECT_EQ(ports::attached_usb_devices().back()->cycle_port(), ports::port_status::ok);
    const auto usb = ports::attached_usb_devices().back();
    EXPECT_EQ(usb->identity().serial_number + usb->identity().friendly_name, "A_1mine");
    EXPECT_EQ(jv_sim_script(sim, "refuse"), 0);
    EXPECT_EQ(usb->open(), ports::port_status::refused);
    EXPECT_EQ(jv_sim_script(sim, "refuse off; zero-length off; zero-length"), 0);
    EXPECT_EQ(usb->open(), ports::port_status::ok);
    jv_sim_detach(sim);
    EXPECT_EQ(usb->open(), ports::port_status::gone);
}

TEST_F(SimTest, ABadLineIsNamedByItsNumberAndTheReason) {
    const struct {
        const char* script;
        int line;
        const char* error;
    } table[] = {
        {"jump", 1, "no line begins with 'jump'"},
        {"lose 1;\n lose", 3, "lose: the number of events is missing"},
        {"event 256", 1, "event: '256' is not a number from 0 to 255"},
        {"raw 01 2", 1, "raw: '01 2' has an odd number of digits: two make a byte"},
        {"raw 00 no", 1, "raw: 'no' is one word too many"},
        {"reply fast", 1, "reply: 'fast' is not a change of a reply"},
        {"reply silent delay", 1, "reply: the delay is missing"},
        {"memory 0xFFFF 0102", 1, "memory: 2 bytes at 65535 reach beyond the end of memory"},
        {"events 5", 1, "events: the identifier is missing"},
        {"refuse on", 1, "refuse: what may follow is 'off'"},
        {"lose 1\ntransfer 0", 2, "transfer: this is no USB controller"},
        {nullptr, -1, "there is no device or no script"},
    };
    for (const auto& row : table) {
        EXPECT_EQ(jv_sim_script(sim, row.script), row.line) << row.error;
        EXPECT_STREQ(jv_sim_error(), row.error);
    }
    EXPECT_EQ(jv_sim_script(sim, "lose 1"), 0);
    EXPECT_STREQ(jv_sim_error(), "");
}

} // namespace
} // namespace jorvet::sim
