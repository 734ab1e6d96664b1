// The bridge as the driver sees it.
#include <gtest/gtest.h>

#include "tests/sim/recording_link.h"

namespace jorvet::sim {
namespace {

TEST(Bridge, LosesAndCountsWhatDoesNotFitItsQueue) {
    bridge_options options;
    options.queue_capacity = 16;
    const auto bridge = simulated_bridge::plug_in(options);
    const auto read = [&](std::size_t count) {
        byte_vector bytes(count);
        EXPECT_EQ(bridge->read(bytes.data(), count, &count), ports::port_status::ok);
        return to_hex(bytes.data(), count);
    };
    bridge->open({});
    bridge->board().send_raw(byte_vector(12, 0x11));
    EXPECT_EQ(read(9), "111111111111111111");
    bridge->board().send_raw(byte_vector(16, 0x22));
    EXPECT_EQ(bridge->overrun_bytes(), 3u);
    EXPECT_EQ(read(20), "11111122222222222222222222222222");
    bridge->board().send_raw({1});
    EXPECT_EQ(bridge->purge(true, false), ports::port_status::ok);
    EXPECT_EQ(read(1), "");
    bridge->unplug();
}

} // namespace
} // namespace jorvet::sim
