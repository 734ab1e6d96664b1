// One endpoint of the simulated controller: the transfers started on it, the plans for them, and how they end. No
// thread, no lock, no clock; completions run inside the calls.
#pragma once

#include <deque>
#include <limits>

#include "jorvet/sim/usb/transfer_plan.h"
#include "jorvet/sim/usb/usb_numbers.h"

namespace jorvet::sim {

using time_point = std::chrono::steady_clock::time_point;

// A transfer that has been started and has not ended.
struct started_transfer {
    std::uint64_t id = 0;
    ports::usb_setup setup; // of a control transfer
    std::size_t length = 0;
    std::size_t packets = 0;
    byte_view rest; // to the device: bytes not taken yet, in the caller's memory or in `copy`
    byte_vector copy;
    std::size_t moved = 0; // to the device
    byte_vector received;  // from the device, while the transfer continues after full packets
    transfer_plan plan;
    bool planned = false;
    std::optional<time_point> due; // nothing happens before
    ports::usb_completion done;

    std::size_t limit() const; // bytes that move before it ends
    // Reports the end, with what came from the device.
    void end(ports::usb_end end, byte_view data = {}, std::vector<ports::usb_packet> records = {}) const;
};

class simulated_endpoint {
  public:
    // Whether the selected setting has it. `packet_size`: bytes of a packet; of an isochronous one, those of an
    // interval.
    void appear(endpoint_kind kind, std::size_t packet_size);
    void disappear(); // ends what is pending as cancelled
    bool exists() const { return exists_; }
    endpoint_kind kind() const { return kind_; }

    // Both return when the transfer that now has a plan with a delay is due.
    std::optional<time_point> start(started_transfer transfer, time_point now);
    std::optional<time_point> add_plan(const transfer_plan& plan, time_point now);
    // Copies a transfer's bytes, so that it no longer refers to the caller's. False when it is not pending.
    bool keep_bytes(std::uint64_t id);

    // Ends the oldest transfer, from the device, with the beginning of `bytes` or with what its plan says. Returns how
    // many of `bytes` it took; nothing when the transfer stays pending or there is none.
    std::optional<std::size_t> end_inbound(byte_view bytes, time_point now, bool until_short_packet);
    // Takes out the oldest transfer while the device works on it; nothing when there is none, when it stays pending, or
    // while another is out. It must be passed to end() or put back; put back after end_all(), it ends in the same way.
    std::optional<started_transfer> take(time_point now);
    void put_back(started_transfer transfer);
    void end(const started_transfer& transfer, ports::usb_end end, byte_view data = {});

    // Ends what has been started and is pending; with `up_to`, transfers with a higher id stay.
    void end_all(ports::usb_end end, std::uint64_t up_to = std::numeric_limits<std::uint64_t>::max());
    void end_one(std::uint64_t id, ports::usb_end end);
    void set_halted(bool halted); // a halt ends what is pending
    bool halted() const { return halted_; }

  private:
    std::optional<time_point> give_plan(started_transfer& transfer, const transfer_plan& plan, time_point now);
    const started_transfer* oldest(time_point now) const;
    std::size_t limit_of(const started_transfer& transfer) const;
    bool waits_for_bytes(const started_transfer& transfer) const;
    bool goes_on_after(const started_transfer& transfer, byte_view bytes) const;
    std::deque<started_transfer>::iterator find(std::uint64_t id);
    std::vector<ports::usb_packet> records_of(const started_transfer& transfer, ports::usb_end end,
                                              std::size_t count) const;

    bool exists_ = false;
    endpoint_kind kind_ = endpoint_kind::control;
    std::size_t packet_size_ = 0;
    bool halted_ = false;
    std::deque<started_transfer> pending_;
    std::deque<transfer_plan> plans_; // for transfers to come
    bool taken_ = false;              // a transfer is out
    std::uint64_t taken_id_ = 0;
    std::optional<ports::usb_end> ended_meanwhile_;
};

} // namespace jorvet::sim
