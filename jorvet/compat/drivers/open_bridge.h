// A bridge that the D2XX driver has open: the calls in progress, the readers that wait for bytes, the event to signal.
// Any thread may call anything; the port's notification comes on any thread too, even inside a call to the port.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>

#include "jorvet/ports/ports.h"
#include "jorvet/system/d2xx.h"

namespace jorvet::compat::d2xx {

// The driver's status for a port's.
FT_STATUS translate(ports::port_status status);

class open_bridge {
  public:
    explicit open_bridge(std::shared_ptr<ports::bridge_port> port) : port_(std::move(port)) {}
    open_bridge(const open_bridge&) = delete;
    open_bridge& operator=(const open_bridge&) = delete;

    // Called once, first.
    ports::port_status open();
    // Ends the calls that block and returns when no call is in progress. False, at once, when it was called before.
    bool close();

    // A call on the bridge is in progress from enter() to leave(), so that close() can wait for it. False when closed:
    // leave() must not be called then.
    bool enter();
    void leave();

    bool closed() const { return closed_; }
    ports::bridge_port& port() const { return *port_; }
    bool is_on(const ports::bridge_port& port) const { return port_.get() == &port; }

    void set_timeouts(ULONG read_ms, ULONG write_ms);
    void set_event(HANDLE event) { event_ = event; } // null: none

    // FT_Read and FT_Write. A call that close() interrupts returns FT_INVALID_HANDLE.
    FT_STATUS read(std::uint8_t* buffer, std::size_t count, DWORD* taken);
    FT_STATUS write(const std::uint8_t* bytes, std::size_t count, DWORD* written);

  private:
    using time_limit = std::optional<std::chrono::steady_clock::time_point>;

    FT_STATUS read_until(time_limit limit, std::uint8_t* buffer, std::size_t count, DWORD* taken);
    bool wait_for_news(unsigned seen, time_limit limit);
    void on_notify();
    void wake();

    const std::shared_ptr<ports::bridge_port> port_;
    std::atomic<HANDLE> event_{nullptr};
    std::atomic<ULONG> read_timeout_{0};
    std::atomic<ULONG> write_timeout_{0};

    std::atomic<bool> closed_{false};
    std::atomic<unsigned> inside_{0};
    std::atomic<unsigned> readers_{0}; // that wait or are about to
    std::atomic<unsigned> notifications_{0};
    // Guards no data: whoever changes an atomic that a thread may wait for locks and unlocks it before notifying, so
    // that no wake-up is missed. Never held in a call to the port.
    std::mutex mutex_;
    std::condition_variable changed_;
};

} // namespace jorvet::compat::d2xx
