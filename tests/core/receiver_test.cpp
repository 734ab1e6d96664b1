// The road from received bytes to queued records: when records are queued, and what it allocates.
#include <cstdlib>
#include <new>

#include "jorvet/core/receiver.h"
#include "tests/support/session_records.h"

namespace {
// Of the library's threads: a test's own do not count.
thread_local bool of_library = true;
std::atomic<unsigned> allocations{0}, buffers{0}; // of any size; of 512 bytes or more
} // namespace

[[gnu::noinline]] void* operator new(std::size_t size) {
    if (of_library) {
        ++allocations;
        buffers += size >= 512 ? 1 : 0;
    }
    if (void* block = std::malloc(size))
        return block;
    throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* block) noexcept {
    std::free(block);
}
[[gnu::noinline]] void operator delete(void* block, std::size_t) noexcept {
    std::free(block);
}

namespace jorvet::testing {
namespace {

byte_vector event_of(unsigned data) {
    byte_vector frame;
    append_event_head(frame, 7, 0, data);
    frame.resize(frame.size() + data, 0x5A);
    return frame;
}

TEST(Receiver, QueuesEventsOnceThereAreEnough) {
    struct row {
        unsigned data, sent, queued;
    };
    for (const auto& [data, sent, queued] : {row{0, 63, 0}, row{0, 64, 64}, row{0, 130, 128}, row{1024, 3, 0},
                                             row{1024, 7, 4}, row{4095, 1, 0}, row{4095, 2, 2}, row{5000, 3, 3}}) {
        CJorvet jorvet(0);
        {
            core::receiver receiver(jorvet);
            const byte_vector frame = event_of(data);
            for (unsigned event = 0; event < sent; ++event)
                receiver.event(core::event_view(frame.data()), 0);
            EXPECT_EQ(jorvet.event_count(), queued) << data;
            EXPECT_EQ(jorvet.read_event_frames().size(), queued) << data;
        }
        EXPECT_EQ(jorvet.read_event_frames().size(), sent - queued) << "at the end";
    }
}

TEST(Receiver, QueuesEventsBeforeWhatFollows) {
    const byte_vector frame = event_of(3), answer{0x80, 0xA0, 0, 0, 0};
    const std::function<void(core::receiver&)> followers[] = {
        [&](core::receiver& receiver) { receiver.reply(core::reply_view(answer.data())); },
        [](core::receiver& receiver) { receiver.context_lost({}); },
        [](core::receiver& receiver) { receiver.stream_broken(true); },
        [](core::receiver& receiver) { receiver.packet_ended(); },
        [&](core::receiver& receiver) { receiver.event(core::event_view(frame.data()), 5); },
    };
    for (const auto& follow : followers) {
        CJorvet jorvet(0);
        core::receiver receiver(jorvet);
        receiver.event(core::event_view(frame.data()), 0);
        receiver.event(core::event_view(frame.data()), 0);
        follow(receiver);
        EXPECT_TRUE(jorvet.event_count() == 2 && jorvet.lost_events() == 0) << &follow - followers;
        receiver.packet_ended();
        EXPECT_EQ(jorvet.lost_events(), &follow == &followers[4] ? 5u : 0u);
    }
}

// In each packet a frame that began in the one before ends and is discarded, and the search finds the next.
TEST(Receiver, KeepsTheSizeOfItsMemoryThroughLosses) {
    byte_vector frame;
    append_event_head(frame, 1, 0, 600);
    frame.resize(frame.size() + 600);
    const byte_vector begin(frame.begin(), frame.begin() + 300);
    byte_vector broken(frame.begin() + 300, frame.end());
    broken.push_back(0);
    broken.insert(broken.end(), frame.begin(), frame.end());
    broken.insert(broken.end(), begin.begin(), begin.end());
    struct counter final : core::receive_sink {
        void reply(core::reply_view) override {}
        void event(core::event_view, unsigned) override {}
        void context_lost(const core::context_loss&) override { ++losses; }
        bool wants_reports() const override { return true; }
        unsigned losses = 0;
    } sink;
    core::receive_engine engine(sink);
    constexpr unsigned packets = 1000, until_all_have_grown = 10;
    unsigned before = 0;
    for (unsigned packet = 0; packet < packets; ++packet) {
        if (packet == until_all_have_grown)
            before = buffers;
        byte_vector bytes = packet == 0 ? begin : broken;
        ASSERT_TRUE(engine.take(bytes));
    }
    EXPECT_EQ(sink.losses, packets - 1);
    EXPECT_EQ(buffers - before, packets - until_all_have_grown) << "those made here";
}

class Road : public ::testing::TestWithParam<Behind> {};

// One event in a thousand packets: the buffers go round. The driver of a controller, which is in this process, and the
// request to it have small blocks of their own.
TEST_P(Road, AllocatesNothingForAPacket) {
    of_library = false;
    constexpr unsigned packets = 1000, packet_size = 60;
    plugged_board board(GetParam());
    CJorvet jorvet(kind_of(GetParam()));
    ASSERT_EQ(jorvet.connect(0), JV_OK);
    const byte_vector frame = event_of(packets * packet_size - 7);
    unsigned before = 0, buffers_before = 0;
    for (int round = 0; round < 2; ++round) { // the first one until every buffer has its size
        before = allocations;
        buffers_before = buffers;
        for (auto at = frame.begin(); at != frame.end(); at += packet_size) {
            const auto received = counters_of(jorvet).bytes_received;
            board->send_raw({at, at + packet_size});
            while (counters_of(jorvet).bytes_received == received)
                std::this_thread::yield();
        }
        ASSERT_TRUE(eventually([&] { return jorvet.read_event_frames().size() == 1; }));
    }
    EXPECT_LE(buffers - buffers_before, 1u) << "of the record, its data";
    if (GetParam() == Behind::bridge) {
        EXPECT_LT(allocations - before, 10u) << "with those of the record";
    }
    of_library = true;
}

INSTANTIATE_TEST_SUITE_P(EachLink, Road, ::testing::Values(Behind::bridge, Behind::super_speed_controller));

} // namespace
} // namespace jorvet::testing
