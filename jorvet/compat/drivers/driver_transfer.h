// One transfer through the USB driver: what the request block asks for, and what is written into it when the transfer
// ends. The end may be reported on any thread, even on two at once; the first report counts.
#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <optional>
#include <vector>

#include "jorvet/ports/ports.h"
#include "jorvet/system/win32.h"

namespace jorvet::compat::usb {

// A request as the system passes it to a driver. The memory is the driver's until it has answered.
struct io_request {
    DWORD code = 0;
    std::uint8_t* in = nullptr;
    DWORD in_size = 0;
    std::uint8_t* out = nullptr;
    DWORD out_size = 0;
};

// The driver's answer.
struct io_outcome {
    DWORD error = ERROR_SUCCESS;
    DWORD bytes = 0;      // bytes returned, including those before a failure
    bool started = false; // the device had accepted the request before it failed
};

// Called with an answer that comes later, on any thread. Does not block.
using io_done = std::function<void(const io_outcome&)>;

// Where the parts of a transfer are in the request's memory. `block` begins with an XferRequest.
struct transfer_layout {
    std::uint8_t endpoint = 0; // 0: control
    bool inbound = false;
    ports::usb_setup setup;
    unsigned timeout_ms = 0;
    std::uint8_t* block = nullptr;
    std::size_t block_size = 0;
    std::uint8_t* output = nullptr; // of a buffered request: receives a copy of the block if it succeeds
    std::uint8_t* table = nullptr;
    std::size_t packets = 0;
    std::uint8_t* data = nullptr;
    std::size_t length = 0;
    std::size_t counted_before_data = 0; // the part of the block that the byte count covers
};

// Finds the parts in the buffers of one of the three transfer requests. Returns ERROR_SUCCESS,
// ERROR_INVALID_PARAMETER (the block is too short, contradicts itself, or refers to places outside itself) or
// ERROR_INSUFFICIENT_BUFFER (a buffered request whose block does not fit into the output).
DWORD read_layout(const io_request& request, transfer_layout* layout);

class driver_transfer {
  public:
    explicit driver_transfer(const transfer_layout& layout);
    driver_transfer(const driver_transfer&) = delete;
    driver_transfer& operator=(const driver_transfer&) = delete;

    std::uint8_t endpoint() const { return layout_.endpoint; }

    // Passes the transfer to the port, which calls complete(). Once. `self` is this transfer.
    static void submit(const std::shared_ptr<driver_transfer>& self, ports::usb_port& port);

    // Ends the transfer: data, table and status words are written to the caller's memory, then the outcome is passed to
    // the function given to hand_over(). After it returns, the caller's memory is not touched any more.
    void complete(const ports::usb_result& result);

    // The outcome, when the transfer has ended; otherwise none, and `done` is called when it does.
    std::optional<io_outcome> hand_over(io_done done);

    bool finished() const { return finished_; }

  private:
    void submit_to(ports::usb_port& port, ports::usb_completion done) const;
    io_outcome deliver(const ports::usb_result& result) const;
    void fill_table(const ports::usb_result& result, ports::usb_end rest) const;

    // The system's copy of the block of a buffered request, in which the driver works.
    std::vector<std::uint8_t> system_buffer_;
    transfer_layout layout_;
    std::atomic<bool> finished_{false};
    // Guards the members below and the caller's memory. Held while `done_` runs, so that a second end waits until the
    // first is reported; never in a call to the port.
    std::mutex mutex_;
    io_outcome outcome_;
    io_done done_;
};

} // namespace jorvet::compat::usb
