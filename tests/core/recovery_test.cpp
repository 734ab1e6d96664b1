// Going on after a lost stream: how many of the events behind the garbage arrive, and that nothing hangs.
#include <random>

#include "jorvet/core/frame_stream.h"
#include "tests/support/session_records.h"

namespace jorvet::testing {
namespace {

struct counting_sink final : core::receive_sink {
    void reply(core::reply_view) override { ++replies; }
    void event(core::event_view frame, unsigned missing) override {
        numbers.push_back(frame.length() == 4 ? frame.data()[2] << 8 | frame.data()[3] : -1);
        lost += missing;
    }
    void context_lost(const core::context_loss&) override {}
    bool wants_reports() const override { return false; }

    std::vector<int> numbers;
    unsigned lost = 0, replies = 0;
};

// A stream with recovery.
struct Stream {
    Stream() { session.longest_recovered = 256; }
    void feed(const byte_vector& bytes, std::mt19937& random, std::size_t longest_packet) {
        for (auto from = bytes.begin(); from != bytes.end();) {
            const auto left = static_cast<std::size_t>(bytes.end() - from);
            const auto to = from + static_cast<std::ptrdiff_t>(std::min(left, 1 + random() % longest_packet));
            byte_vector packet(from, to);
            ASSERT_TRUE(stream.take(packet));
            from = to;
        }
    }

    CJorvet instance{0};
    core::session& session = core::session::of(instance);
    counting_sink sink;
    core::frame_stream stream{sink, session};
};

void append_event(byte_vector& bytes, unsigned char id, unsigned number) {
    const std::size_t start = bytes.size();
    append_event_head(bytes, id, number, 4);
    for (const unsigned byte : {0u, 0u, number >> 8, number})
        bytes.push_back(static_cast<unsigned char>(byte));
    if (number % 3 == 0) {
        bytes[start] = 0x41;
        bytes.insert(bytes.end(), 2, 0x77);
    }
}

TEST(Recovery, FindsNearlyAllEventsBehindGarbageOfAnyLength) {
    std::mt19937 random(7);
    for (const unsigned char id : {std::uint8_t{1}, std::uint8_t{7}}) {
        std::size_t sent = 0, arrived = 0;
        for (int round = 0; round < 300; ++round) {
            Stream receiver;
            byte_vector bytes;
            for (unsigned i = 0; i < 20; ++i)
                append_event(bytes, id, i);
            for (std::size_t count = 1 + random() % 600; count > 0; --count)
                bytes.push_back(static_cast<unsigned char>(random()));
            for (unsigned i = 20; i < 220; ++i)
                append_event(bytes, id, i);
            const std::size_t sizes[] = {1, 20, 512, 65536};
            receiver.feed(bytes, random, sizes[round % 4]);
            std::vector<int> behind;
            for (const int number : receiver.sink.numbers)
                if (number >= 20 && number < 220)
                    behind.push_back(number);
            EXPECT_TRUE(std::is_sorted(behind.begin(), behind.end()) &&
                        std::adjacent_find(behind.begin(), behind.end()) == behind.end())
                << "each once, in order";
            sent += 200;
            arrived += behind.size();
        }
        EXPECT_GE(100 * arrived, 99 * sent) << arrived << " of " << sent << " with identifier " << int{id};
    }
}

TEST(Recovery, EndsOnAnyBytesAndForgetsWhatBelongsToNoFrame) {
    std::mt19937 random(99);
    static const unsigned char likely[] = {0x40, 0x41, 0x80, 0x81, 0x01, 0x00, 0xA0, 0xFF, 0x00, 0x01, 0x02, 0x80};
    for (int round = 0; round < 100000; ++round) {
        Stream receiver;
        byte_vector bytes(random() % 60);
        for (unsigned char& byte : bytes)
            byte = likely[random() % sizeof likely];
        receiver.feed(bytes, random, 30);
        ASSERT_LE(receiver.session.counters.unread_bytes, bytes.size());
    }
}

using Recovering = EachLink;
INSTANTIATE_TEST_SUITE_P(, Recovering, ::testing::Values(Behind::bridge, Behind::high_speed_controller));

TEST_P(Recovering, GoesOnAfterALossThatItTellsOf) {
    EXPECT_EQ(jv_set_recovery(&jorvet, 256), JV_OK);
    board.send("40 07 00 A000 0000");
    ASSERT_EQ(taken().from(jorvet), JV_OK);
    board.send("11 22 33");
    EXPECT_TRUE(eventually([&] { return state_of(jorvet).state == JV_LINK_STREAM_LOST; }));
    EXPECT_EQ(taken().from(jorvet, 20), JV_ERR_EVENT_TIMEOUT) << "it may come yet";
    board.send("44 40 07 03 A000 0001 55 40 08 04 A000 0000");
    taken one;
    ASSERT_EQ(one.from(jorvet), JV_OK);
    EXPECT_TRUE(one.event.seq == 3 && one.event.lost == 2 && one.bytes[0] == 0x55);
    EXPECT_TRUE(one.from(jorvet) == JV_OK && one.event.id == 8);
    EXPECT_EQ(asked(JV_READ_SN).of(jorvet), JV_OK);
    EXPECT_EQ(state_of(jorvet).changes, 3u);
    EXPECT_TRUE(counts(jorvet, [](const jv_counters& c) {
        return c.stream_losses == 1 && c.resynchronisations == 1 && c.unread_bytes == 4 && c.events == 3 &&
               c.lost_events == 2;
    }));
}

TEST_P(Recovering, CountsWhatNobodyReadsAfterALoss) {
    board.send("40 01 00 A000 0000 00 00");
    EXPECT_TRUE(eventually([&] { return state_of(jorvet).state == JV_LINK_STREAM_LOST; }));
    EXPECT_TRUE(counters_of(jorvet).discarded_frames == 1 && counters_of(jorvet).stream_losses == 1);
    for (int i = 0; i < 100; ++i) {
        board->send_raw(byte_vector(65536, 5));
        std::this_thread::sleep_for(milliseconds(2)); // or the device's queue would overrun
    }
    const std::uint64_t sent = 100 * 65536;
    EXPECT_TRUE(eventually([&] { return counters_of(jorvet).unread_bytes > sent - (2u << 20); }));
    std::this_thread::sleep_for(milliseconds(30));
    const std::size_t kept = jorvet.get_com()->read_input_data().size();
    EXPECT_TRUE(kept >= 1u << 20 && kept <= (5u << 20) / 4) << kept;
    EXPECT_EQ(counters_of(jorvet).unread_bytes, sent + 8 - kept);
}

} // namespace
} // namespace jorvet::testing
