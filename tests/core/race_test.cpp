// Connecting, requests, events, and the end of it all at a random moment, over and over.
#include <filesystem>
#include <random>

#include "tests/support/connected_board.h"

namespace jorvet::testing {
namespace {

std::ptrdiff_t entries(const char* folder) {
    const std::filesystem::directory_iterator all(folder);
    return std::distance(begin(all), end(all));
}

// A request from a second thread, next to those of the first; every status must be one of the library's.
void request_until(CJorvet& jorvet, steady::time_point end) {
    do {
        const unsigned int status = jorvet.rq_get_mode(0, true);
        EXPECT_STRNE(jv_status_name(status), "JV_UNKNOWN") << std::hex << status;
    } while (jorvet.is_open() && steady::now() < end);
}

TEST(Race, EndsCleanlyAtAnyMoment) {
    std::mt19937 random(20240817);
    const auto up_to = [&](unsigned most) { return milliseconds(random() % (most + 1)); };
    CJorvet jorvet(0);
    jorvet.set_timeout_for_reply(20);
    const std::ptrdiff_t threads = entries("/proc/self/task");
    const std::ptrdiff_t descriptors = entries("/proc/self/fd");
    for (int round = 0; round < 300; ++round) {
        SCOPED_TRACE(round);
        const steady::time_point start = steady::now();
        plugged_board board;
        board->start_events(std::chrono::microseconds(200 + random() % 800), {1, 0xA000, {1, 2, 3}, true});
        if (round % 3 != 0)
            board->unplug(up_to(25) + milliseconds(1));
        const unsigned int status = jorvet.connect(0);
        EXPECT_STRNE(jv_status_name(status), "JV_UNKNOWN") << std::hex << status;
        const steady::time_point end = steady::now() + up_to(10);
        std::thread beside([&] { request_until(jorvet, end); });
        request_until(jorvet, end);
        jorvet.wait_for_event();
        jorvet.read_event_frames();
        beside.join();
        jorvet.disconnect();
        EXPECT_FALSE(jorvet.is_open());
        ASSERT_LT(milliseconds_since(start), 10000);
    }
    EXPECT_TRUE(eventually([&] { return entries("/proc/self/task") == threads; })) << "threads left";
    EXPECT_EQ(entries("/proc/self/fd"), descriptors);
}

} // namespace
} // namespace jorvet::testing
