// What the tests of the library's upper rooms share: a board on a simulated bridge, an instance connected to it,
// faults, diagnostics, and waits with a limit.
#pragma once

#include <chrono>
#include <functional>
#include <thread>

#include <gtest/gtest.h>

#include "jorvet/base/diagnostics.h"
#include "jorvet/base/status.h"
#include "jorvet/core/jorvet.h"
#include "jorvet/platform/faults.h"
#include "jorvet/sim/bridge.h"
#include "tests/support/receive_vectors.h"

namespace jorvet::testing {

using byte_vector = std::vector<unsigned char>;
using std::chrono::milliseconds;
using steady = std::chrono::steady_clock;

inline long long milliseconds_since(steady::time_point start) {
    return std::chrono::duration_cast<milliseconds>(steady::now() - start).count();
}

// For what no event tells of.
template <class Condition>
bool eventually(Condition holds, long long limit = 5000) {
    for (const auto start = steady::now(); !holds(); std::this_thread::sleep_for(milliseconds(1)))
        if (milliseconds_since(start) > limit)
            return false;
    return true;
}

// What `call` gives while the nth call of `function` fails.
template <class Call>
auto with_fault(const char* function, unsigned nth, unsigned error, Call call) {
    const platform::faults::Scope armed(function, nth, error);
    return call();
}

// Has `listener` hear the library's diagnostics; without one nobody does.
inline void hear(std::function<void(const std::string&)> listener) {
    static std::function<void(const std::string&)> current;
    diagnostics::set_writer(nullptr);
    current = std::move(listener);
    if (current)
        diagnostics::set_writer([](const std::string& text) { current(text); });
}

inline sim::ReplyPlan reply(unsigned status, const char* data, milliseconds delay = milliseconds(0)) {
    return {false, static_cast<std::uint16_t>(status), from_hex(data), {}, false, {}, {}, {delay, 0, {}}, {}};
}

// A board behind a bridge that is plugged in for as long as this lives.
struct plugged_board {
    plugged_board(const sim::BridgeOptions& options = {}) : bridge(sim::Bridge::plug_in(options)) {}
    ~plugged_board() { bridge->unplug(); }
    sim::Board* operator->() const { return &bridge->board(); }
    void send(const char* hex) const { bridge->board().send_raw(from_hex(hex)); }

    const std::shared_ptr<sim::Bridge> bridge;
};

// An instance connected to a board. Its time-outs are long, but where one is expected.
class ConnectedBoard : public ::testing::Test {
  protected:
    void SetUp() override {
        set_timeouts(10000);
        ASSERT_EQ(jorvet.connect(0), JV_OK);
    }
    void set_timeouts(unsigned short limit) {
        jorvet.set_timeout_for_reply(limit);
        jorvet.set_timeout_for_event(limit);
    }
    // Afterwards everything that was sent before has been received, too, if no other reply was under way.
    void receive_reply(const char* hex = "80 A000 0000") {
        board.send(hex);
        ASSERT_EQ(jorvet.wait_for_reply(), JV_OK);
    }
    void expect_working_after_connect() {
        set_timeouts(10000);
        EXPECT_EQ(jorvet.connect(0), JV_OK);
        EXPECT_EQ(jorvet.rq_read_sn(1, true), JV_OK);
    }

    plugged_board board;
    CJorvet jorvet{0};
};

} // namespace jorvet::testing
