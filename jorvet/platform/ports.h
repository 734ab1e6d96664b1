// What a device plugged in underneath must do, and how it is plugged in. Two families implement these classes: the
// simulated devices of sim/, and real ones. Ports know nothing of the library above the drivers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "jorvet/platform/export.h"

namespace jorvet::platform {

// How a port answers. The drivers translate it into their own status.
enum class PortStatus {
    ok,
    gone,      // the device is unplugged; nothing brings this port back to life
    refused,   // the device is there and does not want to (in use by another program, not permitted)
    bad_value, // an argument outside what the device can do
    failed     // the transfer failed; the device is still there
};

// What identifies a bridge on the bus. It never changes while the port is attached.
struct BridgeIdentity {
    std::string serial_number; // at most 15 characters
    std::string description;   // at most 63 characters
    std::uint32_t type = 0;    // kind of chip
    std::uint32_t id = 0;      // USB vendor (high half) and product ID
    std::uint32_t location = 0;
};

// A serial bridge. The driver opens it once at a time; every operation but identity() happens between open() and
// close(), from any thread, several at once. One that a close() on another thread overtakes may still come in before
// the next open(): it does not block, and a write() says PortStatus::failed. None may call back into the driver but
// through the function given to open(), and none may block but write(). After the device is gone every operation says
// PortStatus::gone, at once.
class JV_PLATFORM_API BridgePort {
  public:
    BridgePort() = default;
    BridgePort(const BridgePort&) = delete;
    BridgePort& operator=(const BridgePort&) = delete;
    virtual ~BridgePort();

    virtual BridgeIdentity identity() const = 0;

    // Takes the device for the caller. `notify` is called from any thread, with no lock of the port held, after bytes
    // arrived and after the device went away; it is short and does not block. No call of it is under way, and none
    // follows, once close() has returned.
    virtual PortStatus open(std::function<void()> notify) = 0;
    // Gives the device back; a write() that is blocked ends. Harmless when closed.
    virtual void close() = 0;

    // Line and transfer settings, units as in the names. bad_value where the device cannot do that.
    virtual PortStatus set_baud_rate(std::uint32_t bits_per_second) = 0;
    virtual PortStatus set_data_format(unsigned data_bits, unsigned stop_bits, unsigned parity) = 0;
    virtual PortStatus set_flow_control(unsigned mode, std::uint8_t xon, std::uint8_t xoff) = 0;
    virtual PortStatus set_latency_ms(unsigned milliseconds) = 0;
    virtual PortStatus set_transfer_sizes(std::uint32_t in_bytes, std::uint32_t out_bytes) = 0;
    virtual PortStatus reset() = 0;

    // Sends bytes, blocking while the device does not take them, at most `timeout_ms` (0: without limit). `*written`
    // is how many it took, always set; fewer than `count` with ok means that the time-out passed.
    virtual PortStatus write(const std::uint8_t* bytes, std::size_t count, unsigned timeout_ms,
                             std::size_t* written) = 0;

    // Received bytes: how many wait, and taking the oldest ones (as many as there are, at most `count`; does not wait).
    virtual PortStatus received(std::size_t* count) = 0;
    virtual PortStatus read(std::uint8_t* bytes, std::size_t count, std::size_t* taken) = 0;
    // Discards received bytes, bytes waiting to be sent, or both.
    virtual PortStatus purge(bool receive, bool transmit) = 0;
};

// Plugs a bridge in: from now on the D2XX driver lists it, after those attached before it.
JV_PLATFORM_API void attach(std::shared_ptr<BridgePort> port);
// Unplugs it: it leaves the list and later calls on its handles find it gone. The port itself must say `gone` from now
// on; sim::Bridge does both. Harmless when it is not attached.
JV_PLATFORM_API void detach(const std::shared_ptr<BridgePort>& port);
// The bridges attached now, in the order of the driver's device list.
JV_PLATFORM_API std::vector<std::shared_ptr<BridgePort>> attached_bridges();

} // namespace jorvet::platform
