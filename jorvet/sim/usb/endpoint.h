// One endpoint of the simulated controller: the transfers started on it, the plans for them, and how they end. No
// thread, no lock, no clock; completions run inside the calls.
#pragma once

#include <deque>

#include "jorvet/sim/usb/controller.h"
#include "jorvet/sim/usb/usb_numbers.h"

namespace jorvet::sim {

using TimePoint = std::chrono::steady_clock::time_point;

// A view of bytes.
struct Chunk {
    const std::uint8_t* bytes = nullptr;
    std::size_t count = 0;

    void skip(std::size_t taken) {
        if (taken > 0) // never adds to null
            bytes += taken;
        count -= taken;
    }
};

// A transfer that has been started and has not ended.
struct StartedTransfer {
    std::uint64_t id = 0;
    platform::UsbSetup setup; // of a control transfer
    std::size_t length = 0;
    std::size_t packets = 0;
    Chunk rest; // to the device: what it has not taken yet, in the caller's memory or in `copy`
    Bytes copy;
    std::size_t moved = 0; // to the device
    TransferPlan plan;
    bool planned = false;
    std::optional<TimePoint> due; // nothing happens before
    platform::UsbCompletion done;

    std::size_t most() const; // bytes that move before it ends
    // Reports the end, with what came from the device.
    void end(platform::UsbEnd end, Chunk data = {}, std::vector<platform::UsbPacket> records = {}) const;
};

class UsbEndpoint {
  public:
    // Whether the selected setting has it. `packet_size`: most bytes of an isochronous packet.
    void appear(UsbEndpointKind kind, std::size_t packet_size);
    void disappear(); // ends what is pending as cancelled
    bool exists() const { return exists_; }
    UsbEndpointKind kind() const { return kind_; }

    // Both give when the transfer is due that has got a plan with a delay from now on.
    std::optional<TimePoint> start(StartedTransfer transfer, TimePoint now);
    std::optional<TimePoint> add_plan(const TransferPlan& plan, TimePoint now);
    // Has a transfer keep bytes of its own, no more those of the caller. False when it is not pending.
    bool keep_bytes(std::uint64_t id);

    // Ends the oldest transfer, from the device, with the beginning of `bytes` or with what its plan says. Gives how
    // many of `bytes` it took; nothing when the transfer stays pending or there is none.
    std::optional<std::size_t> end_inbound(Chunk bytes, TimePoint now);
    // Takes the oldest transfer out, for the time that the device works on it; nothing when there is none, when it
    // stays pending, or while another is out. It goes on to end() or back; coming back after end_all(), it ends
    // likewise.
    std::optional<StartedTransfer> take(TimePoint now);
    void put_back(StartedTransfer transfer);
    void end(const StartedTransfer& transfer, platform::UsbEnd end, Chunk data = {});

    void end_all(platform::UsbEnd end);
    void end_one(std::uint64_t id, platform::UsbEnd end);
    void set_halted(bool halted); // a halt ends what is pending
    bool halted() const { return halted_; }

  private:
    std::optional<TimePoint> give_plan(StartedTransfer& transfer, const TransferPlan& plan, TimePoint now);
    const StartedTransfer* oldest(TimePoint now) const;
    std::size_t most_of(const StartedTransfer& transfer) const;
    bool waits_for_bytes(const StartedTransfer& transfer) const;
    std::deque<StartedTransfer>::iterator find(std::uint64_t id);
    std::vector<platform::UsbPacket> records_of(const StartedTransfer& transfer, platform::UsbEnd end,
                                                std::size_t count) const;

    bool exists_ = false;
    UsbEndpointKind kind_ = UsbEndpointKind::control;
    std::size_t packet_size_ = 0;
    bool halted_ = false;
    std::deque<StartedTransfer> pending_;
    std::deque<TransferPlan> plans_; // for transfers to come
    bool taken_ = false;             // a transfer is out
    std::optional<platform::UsbEnd> ended_meanwhile_;
};

} // namespace jorvet::sim
