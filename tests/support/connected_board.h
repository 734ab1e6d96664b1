// What the tests of the library's upper rooms share: a board behind a simulated device, an instance connected to it,
// faults, diagnostics, and waits with a limit.
#pragma once

#include <chrono>
#include <cstdlib>
#include <functional>
#include <thread>

#include <gtest/gtest.h>

#include "jorvet/base/diagnostics.h"
#include "jorvet/base/status.h"
#include "jorvet/compat/faults.h"
#include "jorvet/core/jorvet.h"
#include "jorvet/sim/bridge.h"
#include "jorvet/sim/usb/controller.h"
#include "tests/support/receive_vectors.h"

namespace jorvet::testing {

using byte_vector = std::vector<unsigned char>;
using std::chrono::milliseconds;
using steady = std::chrono::steady_clock;

inline long long milliseconds_since(steady::time_point start) {
    return std::chrono::duration_cast<milliseconds>(steady::now() - start).count();
}

// The milliseconds that `call` takes at best: a busy machine may hold up some of the rounds.
template <class Call>
long long fastest_of(int rounds, Call call) {
    long long least = 1000000;
    for (; rounds > 0; --rounds) {
        const steady::time_point start = steady::now();
        call();
        least = std::min(least, milliseconds_since(start));
    }
    return least;
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
    const compat::faults::scope armed(function, nth, error);
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

inline sim::reply_plan reply(unsigned status, const char* data, milliseconds delay = milliseconds(0)) {
    return {false, static_cast<std::uint16_t>(status), from_hex(data), {}, false, {}, {}, {delay, 0, {}}, {}};
}

// What a board sits behind.
enum class Behind { bridge, high_speed_controller, super_speed_controller };

inline void PrintTo(Behind device, std::ostream* out) {
    *out << (device == Behind::bridge ? "bridge" : device == Behind::high_speed_controller ? "high" : "super");
}

inline unsigned int kind_of(Behind device) {
    return device == Behind::bridge ? 0 : 1;
}

inline sim::controller_options controller_options(Behind device) {
    sim::controller_options options;
    const bool super_speed = device == Behind::super_speed_controller;
    options.speed = super_speed ? ports::usb_speed::super : ports::usb_speed::high;
    return options;
}

// The driver answers late in runs of their own, which set this variable.
inline void delay_answers_if_asked() {
    if (const char* const delay = std::getenv("JORVET_TEST_ANSWER_DELAY"))
        compat::faults::delay_answers(static_cast<unsigned>(std::atoi(delay)));
}

// In a test program with another bus the devices go there: called after a device was plugged in, and after it was
// unplugged.
inline void (*on_other_bus)(const std::shared_ptr<sim::simulated_bridge>&,
                            const std::shared_ptr<sim::simulated_controller>&) = nullptr;

// A board behind a device that is plugged in for as long as this lives.
struct plugged_board {
    plugged_board(const sim::bridge_options& options = {})
        : bridge(sim::simulated_bridge::plug_in(options)), device(bridge) {
        tell_other_bus();
    }
    plugged_board(const sim::controller_options& options)
        : controller(sim::simulated_controller::plug_in(options)), device(controller) {
        delay_answers_if_asked();
        tell_other_bus();
    }
    plugged_board(Behind behind)
        : plugged_board(behind == Behind::bridge ? plugged_board(sim::bridge_options{})
                                                 : plugged_board(controller_options(behind))) {}
    plugged_board(plugged_board&&) = default;
    ~plugged_board() {
        if (!device)
            return;
        device->unplug();
        tell_other_bus();
    }
    void tell_other_bus() const {
        if (on_other_bus != nullptr)
            on_other_bus(bridge, controller);
    }
    sim::simulated_board* operator->() const { return &device->board(); }
    void send(const char* hex) const { device->board().send_raw(from_hex(hex)); }

    std::shared_ptr<sim::simulated_bridge> bridge; // one of these two
    std::shared_ptr<sim::simulated_controller> controller;
    std::shared_ptr<sim::simulated_device> device;
};

// An instance connected to a board. Its time-outs are long, but where one is expected.
class ConnectedBoard : public ::testing::Test {
  public:
    explicit ConnectedBoard(Behind behind = Behind::bridge) : board(behind), jorvet(kind_of(behind)) {}

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
    CJorvet jorvet;
};

// The same behind each device in turn.
class EachLink : public ConnectedBoard, public ::testing::WithParamInterface<Behind> {
  public:
    EachLink() : ConnectedBoard(GetParam()) {}
};

} // namespace jorvet::testing
