// The receive engine: the table of streams, the same streams cut in every way, and random ones against a reference.
#include <random>

#include <gtest/gtest.h>

#include "tests/support/receive_vectors.h"
#include "tests/support/reference_receiver.h"

namespace jorvet::testing {
namespace {

using packets = std::vector<byte_vector>;

outcome run(const packets& input) {
    recorded_engine engine;
    for (const byte_vector& packet : input)
        engine.take(packet);
    return engine.result;
}

outcome run_reference(const packets& input) {
    reference_receiver receiver;
    for (const byte_vector& packet : input)
        receiver.take(packet);
    return receiver.result;
}

void expect_like_reference(const packets& input) {
    const outcome engine = run(input);
    const outcome reference = run_reference(input);
    ASSERT_EQ(engine.frames, reference.frames);
    ASSERT_EQ(engine.reports.size(), reference.reports.size());
    for (std::size_t i = 0; i < engine.reports.size(); ++i)
        ASSERT_TRUE(same_report(engine.reports[i], reference.reports[i])) << engine.reports[i] << "instead of\n"
                                                                          << reference.reports[i];
}

packets packets_of(const receive_vector& vector) {
    packets input;
    for (const char* packet : vector.packets)
        input.push_back(from_hex(packet));
    return input;
}

TEST(ReceiveEngine, CutsEachRowOfTheTableIntoItsFrames) {
    for (const receive_vector& vector : receive_vectors) {
        SCOPED_TRACE(vector.name);
        EXPECT_EQ(run(packets_of(vector)).frames, vector.outcome);
        expect_like_reference(packets_of(vector));
    }
}

TEST(ReceiveEngine, DoesWhatTheReferenceDoesOnRandomBytes) {
    static const unsigned char likely[] = {0x40, 0x41, 0x80, 0x81, 0x01, 0x00, 0xA0, 0xFF, 0x00, 0x01, 0x02, 0x80};
    const byte_vector events[] = {from_hex("40 01 01 A000 0000"), from_hex("41 01 02 8001 0001 40 FFFF"),
                                  from_hex("80 A000 0000")};
    std::mt19937 random(1);
    for (int round = 0; round < 40000; ++round) {
        packets input(1 + random() % 6);
        for (byte_vector& packet : input) {
            for (unsigned pieces = random() % 8; pieces > 0; --pieces) {
                const byte_vector& event = events[random() % 3];
                if (random() % 2 == 0)
                    packet.insert(packet.end(), event.begin(), event.end() - static_cast<int>(random() % 2));
                else
                    packet.push_back(likely[random() % sizeof likely]);
            }
        }
        ASSERT_NO_FATAL_FAILURE(expect_like_reference(input)) << "round " << round;
    }
}

TEST(ReceiveEngine, AssemblesTheLongestFrames) {
    for (const unsigned start : {0x80u, 0x81u, 0x40u, 0x41u}) {
        byte_vector frame = from_hex(start >= 0x80 ? "00 A000 FFFF" : "00 01 00 A000 FFFF");
        frame[0] = static_cast<unsigned char>(start);
        frame.resize(frame.size() + 65535 + (start & 1u) * 2, 0x5A);
        byte_vector head(frame.begin(), frame.begin() + 1000);
        byte_vector tail(frame.begin() + 1000, frame.end());
        EXPECT_EQ(run({frame}).frames, run({head, tail}).frames);
        EXPECT_EQ(run({frame}).frame_count, 1u);
    }
}

} // namespace
} // namespace jorvet::testing
