// What the tests of the library's upper rooms share: a board on a simulated bridge, an instance connected to it, what
// the library's diagnostics say, the eleven requests as they look on the link, and a wait with a limit.
#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

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
bool eventually(Condition holds, milliseconds limit = milliseconds(5000)) {
    const steady::time_point end = steady::now() + limit;
    while (!holds()) {
        if (steady::now() > end)
            return false;
        std::this_thread::sleep_for(milliseconds(1));
    }
    return true;
}

inline std::string to_hex(const unsigned char* bytes, std::size_t count) {
    static const char digits[] = "0123456789ABCDEF";
    std::string text;
    for (std::size_t i = 0; i < count; ++i)
        text += {digits[bytes[i] >> 4], digits[bytes[i] & 15]};
    return text;
}

// A board behind a bridge that is plugged in for as long as this lives. Notes what crosses the link, piece by piece:
// ">" and the bytes towards the board, "<" and those from it.
class plugged_board {
  public:
    explicit plugged_board(const sim::BridgeOptions& options = {}) : bridge(sim::Bridge::plug_in(options)) {
        bridge->set_trace([this](sim::Direction direction, const std::uint8_t* bytes, std::size_t count) {
            const std::lock_guard<std::mutex> lock(mutex_);
            traffic_.push_back((direction == sim::Direction::to_board ? ">" : "<") + to_hex(bytes, count));
        });
    }
    ~plugged_board() {
        bridge->set_trace({});
        bridge->unplug();
    }
    plugged_board(const plugged_board&) = delete;
    plugged_board& operator=(const plugged_board&) = delete;

    sim::Board* operator->() const { return &bridge->board(); }
    void send(const char* hex) const { bridge->board().send_raw(from_hex(hex)); }
    std::vector<std::string> take_traffic() {
        const std::lock_guard<std::mutex> lock(mutex_);
        return std::move(traffic_);
    }

    const std::shared_ptr<sim::Bridge> bridge;

  private:
    std::mutex mutex_;
    std::vector<std::string> traffic_;
};

inline sim::ReplyPlan reply(unsigned short status, const char* data_hex, milliseconds delay = milliseconds(0)) {
    sim::ReplyPlan plan;
    plan.status = status;
    plan.data = from_hex(data_hex);
    plan.pacing.delay = delay;
    return plan;
}

inline sim::ReplyPlan silence() {
    sim::ReplyPlan plan;
    plan.silent = true;
    return plan;
}

// The eleven requests in their usual order, with the arguments 1, 2, 3 as far as they take them (get-mode: 0) and the
// data AB CD: the frame after its start byte, its trailer, and what a time-out is called.
struct request_on_link {
    const char* frame;
    const char* trailer;
    unsigned int timeout_status;
};
inline constexpr request_on_link requests_on_link[] = {
    {"100102030000", "1CC0", 0x30100002},     // read memory
    {"110102030000", "4660", 0x30100003},     // read by id
    {"150100000000", "6FF9", 0x30100004},     // read sn
    {"160100000000", "8119", 0x30100005},     // read last sw
    {"170100000000", "DBB9", 0x30100006},     // read error
    {"200102000002ABCD", "0551", 0x30100007}, // write memory
    {"210102000002ABCD", "7882", 0x30100008}, // write by id
    {"400102000002ABCD", "DEE9", 0x30100009}, // exec by id
    {"300102000000", "D998", 0x3010000A},     // reset
    {"310102000000", "8338", 0x3010000B},     // set mode
    {"320000000000", "1EE1", 0x3010000C},     // get mode
};

inline std::string sent_frame(const request_on_link& rq, bool with_crc) {
    return with_crc ? std::string(">91") + rq.frame + rq.trailer : std::string(">90") + rq.frame;
}

} // namespace jorvet::testing
