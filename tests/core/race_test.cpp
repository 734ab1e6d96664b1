// Connecting, requests, events, and the end of it all at a random moment, over and over.
#include <random>

#include "tests/support/connected_board.h"
#include "tests/support/process_resources.h"

namespace jorvet::testing {
namespace {

void expect_status(unsigned int status) {
    EXPECT_STRNE(jv_status_name(status), "JV_UNKNOWN") << std::hex << status;
}

class Race : public ::testing::TestWithParam<bool> {};

TEST_P(Race, EndsCleanlyAtAnyMoment) {
    const bool bridge = GetParam();
    std::mt19937 random(20240817);
    CJorvet jorvet(bridge ? 0 : 1);
    jorvet.set_timeout_for_reply(20);
    jorvet.set_timeout_for_event(1);
    std::thread([] {}).join(); // brings a sanitizer's own thread to life
    std::thread([] {}).join(); // a sanitizer starts a thread of its own beside the first one
    const std::ptrdiff_t threads = threads_in_process();
    const DWORD handles = handles_in_process();
    for (int round = 0; round < 300; ++round) {
        const steady::time_point start = steady::now();
        const Behind controller = round % 2 == 0 ? Behind::high_speed_controller : Behind::super_speed_controller;
        plugged_board board(bridge ? Behind::bridge : controller);
        board->start_events(std::chrono::microseconds(200 + random() % 800), {1, 0xA000, {1, 2, 3}, true});
        if (round % 3 != 0)
            board->unplug(milliseconds(1 + random() % 25));
        expect_status(jorvet.connect(0));
        const auto request = [&, end = steady::now() + milliseconds(random() % 10)] {
            do
                expect_status(jorvet.rq_get_mode(0, true));
            while (jorvet.is_open() && steady::now() < end);
        };
        std::thread beside(request);
        request();
        jorvet.wait_for_event();
        jorvet.read_event_frames();
        beside.join();
        expect_status(jorvet.disconnect());
        EXPECT_FALSE(jorvet.is_open());
        ASSERT_LT(milliseconds_since(start), 10000) << "round " << round;
    }
    expect_status(jorvet.connect(0)); // nothing is there: lets go of the last device
    EXPECT_TRUE(eventually([&] { return threads_in_process() == threads; })) << "threads left";
    EXPECT_EQ(handles_in_process(), handles);
}

INSTANTIATE_TEST_SUITE_P(, Race, ::testing::Bool(), [](const auto& link) {
    return std::string(link.param ? "BehindABridge" : "BehindAController");
});

} // namespace
} // namespace jorvet::testing
