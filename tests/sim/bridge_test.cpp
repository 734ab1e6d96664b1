// The bridge as the driver sees it.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "tests/sim/recording_link.h"

namespace jorvet::sim {
namespace {

using ports::port_status;

const byte_vector get_mode = from_hex("90320000000000");

class BridgeTest : public ::testing::Test {
  protected:
    BridgeTest() {
        bridge_options options;
        options.queue_capacity = 16;
        bridge = simulated_bridge::plug_in(options);
        EXPECT_EQ(bridge->open([this] { ++notified; }), port_status::ok);
    }
    ~BridgeTest() override { bridge->unplug(); }

    port_status write(const byte_vector& bytes, unsigned timeout_ms = 0) {
        return bridge->write(bytes.data(), bytes.size(), timeout_ms, &written);
    }
    std::string read(std::size_t count) {
        byte_vector bytes(count);
        EXPECT_EQ(bridge->read(bytes.data(), count, &count), port_status::ok);
        return to_hex(bytes.data(), count);
    }

    std::shared_ptr<simulated_bridge> bridge;
    std::atomic<int> notified{0};
    std::size_t written = 0;
};

TEST_F(BridgeTest, WhatDoesNotFitTheQueueIsLostAndCounted) {
    bridge->board().send_raw(byte_vector(12, 0x11));
    EXPECT_EQ(read(9), "111111111111111111");
    bridge->board().send_raw(byte_vector(16, 0x22));
    EXPECT_EQ(bridge->overrun_bytes(), 3u);
    EXPECT_EQ(read(20), "11111122222222222222222222222222");
    bridge->board().send_raw({1});
    EXPECT_EQ(bridge->purge(true, false), port_status::ok);
    EXPECT_EQ(read(1), "");
}

TEST_F(BridgeTest, NoNotificationIsUnderWayAfterClose) {
    bridge->close();
    bridge->board().start_events(std::chrono::microseconds(20), {});
    for (int i = 0; i < 200; ++i) {
        std::atomic<int> calls{0};
        auto counter = std::make_unique<int>(0);
        ASSERT_EQ(bridge->open([&] { ++*counter, ++calls; }), port_status::ok);
        while (calls == 0)
            std::this_thread::yield();
        bridge->close();
        EXPECT_EQ(*counter, calls);
    }
}

} // namespace
} // namespace jorvet::sim
