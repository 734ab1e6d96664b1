// A long stream of events: every frame arrives, whole and in order, and memory stays flat.
#include <fstream>

#include <unistd.h>

#include "tests/support/session_records.h"

namespace jorvet::testing {
namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::size_t stream_bytes = std::size_t{64} << 20;
constexpr long max_growth = long{1} << 40; // sanitizers keep freed memory
#else
constexpr std::size_t stream_bytes = std::size_t{1} << 29;
constexpr long max_growth = 32 << 20;
#endif
constexpr std::size_t data_bytes = 1017; // a frame of 1,024 bytes
constexpr std::size_t burst_frames = 500;
constexpr std::size_t max_ahead = 2000; // frames sent and not yet taken: the device's queue holds twice that

long resident_pages() {
    long total = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> total >> resident;
    return resident;
}

// The data of a frame: its number, over and over.
void put_data(byte_vector& bytes, std::size_t frame) {
    for (std::size_t place = 0; place < data_bytes; ++place)
        bytes.push_back(static_cast<unsigned char>(frame >> 8 * (place % 4)));
}

// Frames from `first` on, as one piece of the byte stream.
byte_vector burst(std::size_t first) {
    byte_vector bytes;
    bytes.reserve(burst_frames * 1024);
    for (std::size_t frame = first; frame < first + burst_frames; ++frame) {
        append_event_head(bytes, 7, frame, data_bytes);
        put_data(bytes, frame);
    }
    return bytes;
}

bool is_frame(const IProtocol::EVENT_FRAME& event, std::size_t frame, byte_vector& expected) {
    expected.clear();
    put_data(expected, frame);
    return event.id == 7 && event.seq == static_cast<unsigned char>(frame) && event.status == 0xA000 &&
           event.data == expected;
}

using Streams = EachLink;
INSTANTIATE_TEST_SUITE_P(, Streams, ::testing::Values(Behind::bridge, Behind::super_speed_controller));

TEST_P(Streams, OfEventsArriveWholeAndInOrderInFlatMemory) {
    const char* const wanted = std::getenv("JORVET_TEST_FRAMES"); // for a long run
    const std::size_t frames = wanted != nullptr ? std::stoul(wanted) : stream_bytes / 1024;
    byte_vector expected;
    std::atomic<std::size_t> taken{0};
    std::atomic<bool> gave_up{false};
    std::thread sender([&] {
        for (std::size_t sent = 0; sent < frames && !gave_up; sent += burst_frames) {
            const byte_vector bytes = burst(sent);
            while (sent > taken + max_ahead && !gave_up)
                std::this_thread::sleep_for(std::chrono::microseconds(100));
            board->send_raw(bytes);
        }
    });
    long pages_early = 0;
    while (taken < frames) {
        const auto events = jorvet.read_event_frames();
        if (events.empty() && jorvet.wait_for_event() != JV_OK)
            break;
        for (const auto& event : events) {
            if (!is_frame(*event, taken, expected)) {
                ADD_FAILURE() << "frame " << taken;
                gave_up = true;
            }
            ++taken;
        }
        if (gave_up)
            break;
        if (pages_early == 0 && taken > frames / 8)
            pages_early = resident_pages();
    }
    EXPECT_GE(taken, frames);
    EXPECT_EQ(jorvet.lost_events(), 0u);
    EXPECT_LT((resident_pages() - pages_early) * getpagesize(), max_growth);
    gave_up = true;
    sender.join();
}

// A million events for a program that wants the newest thousand and never looks.
TEST(Stream, OfEventsThatNobodyTakesStaysWithinItsLimit) {
    plugged_board board;
    CJorvet jorvet(0);
    ASSERT_EQ(jorvet.connect(0), JV_OK);
    EXPECT_EQ(jv_set_event_limit(&jorvet, 1000), JV_OK);
    constexpr std::size_t per_burst = 10000, bursts = 100;
    long pages_early = 0;
    for (std::size_t sent = 0; sent < bursts * per_burst; sent += per_burst) {
        byte_vector bytes;
        for (std::size_t event = sent; event < sent + per_burst; ++event) {
            append_event_head(bytes, 7, event, 1);
            bytes.push_back(static_cast<unsigned char>(event));
        }
        board->send_raw(bytes);
        ASSERT_TRUE(eventually([&] { return counters_of(jorvet).events == sent + per_burst; }));
        if (sent == 10 * per_burst)
            pages_early = resident_pages();
    }
    EXPECT_LT((resident_pages() - pages_early) * getpagesize(), max_growth);
    EXPECT_EQ(counters_of(jorvet).dropped_events, bursts * per_burst - 1000);
    taken oldest;
    EXPECT_TRUE(oldest.from(jorvet) == JV_OK && oldest.event.dropped == bursts * per_burst - 1000);
    EXPECT_EQ(jorvet.read_event_frames().size(), 999u);
}

} // namespace
} // namespace jorvet::testing
