// What a device plugged in underneath must do, and how it is plugged in. Two families implement these classes: the
// simulated devices of sim/, and real ones. Ports know nothing of the library above the drivers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "jorvet/base/export.h"

namespace jorvet::ports {

// How a port answers. The drivers translate it into their own status.
enum class port_status {
    ok,
    gone,      // the device is unplugged; this port stays gone for good
    refused,   // the device is attached but in use elsewhere, or cannot do this
    denied,    // the system does not permit this process to use it
    bad_value, // an argument outside what the device can do
    failed     // the transfer failed; the device is still there
};

// What identifies a bridge on the bus. It never changes while the port is attached.
struct bridge_identity {
    std::string serial_number; // at most 15 characters
    std::string description;   // at most 63 characters
    std::uint32_t type = 0;    // kind of chip
    std::uint32_t id = 0;      // USB vendor (high half) and product ID
    std::uint32_t location = 0;
};

// A serial bridge. The driver opens it once at a time; every operation but identity() happens between open() and
// close(), from any thread, several at once. A call that races with close() on another thread may still arrive before
// the next open(): it must not block, and write() returns port_status::failed. None may call back into the driver
// except through the function given to open(), and only write() may block. After the device is gone every operation
// returns port_status::gone at once.
class JV_PLATFORM_API bridge_port {
  public:
    bridge_port() = default;
    bridge_port(const bridge_port&) = delete;
    bridge_port& operator=(const bridge_port&) = delete;
    virtual ~bridge_port();

    virtual bridge_identity identity() const = 0;
    // Whether another process has it open, as far as the system tells without opening it. At any time.
    virtual bool in_use_elsewhere() const { return false; }

    // Opens the device. `notify` is called from any thread, with no lock of the port held, after bytes
    // arrived and after the device went away; it is short and does not block. No call of it is under way, and none
    // follows, once close() has returned.
    virtual port_status open(std::function<void()> notify) = 0;
    // Releases the device; a write() that is blocked ends. Harmless when closed.
    virtual void close() = 0;

    // Line and transfer settings, units as in the names. bad_value where the device does not support the value.
    virtual port_status set_baud_rate(std::uint32_t bits_per_second) = 0;
    virtual port_status set_data_format(unsigned data_bits, unsigned stop_bits, unsigned parity) = 0;
    virtual port_status set_flow_control(unsigned mode, std::uint8_t xon, std::uint8_t xoff) = 0;
    virtual port_status set_latency_ms(unsigned milliseconds) = 0;
    virtual port_status set_transfer_sizes(std::uint32_t in_bytes, std::uint32_t out_bytes) = 0;
    virtual port_status reset() = 0;

    // Sends bytes, blocking while the device does not take them, at most `timeout_ms` (0: without limit). `*written`
    // is how many it took, always set; fewer than `count` with ok means that the time-out passed.
    virtual port_status write(const std::uint8_t* bytes, std::size_t count, unsigned timeout_ms,
                              std::size_t* written) = 0;

    // Received bytes: how many are waiting, and taking the oldest ones (as many as there are, at most `count`; does not
    // wait).
    virtual port_status received(std::size_t* count) = 0;
    virtual port_status read(std::uint8_t* bytes, std::size_t count, std::size_t* taken) = 0;
    // Discards received bytes, bytes waiting to be sent, or both.
    virtual port_status purge(bool receive, bool transmit) = 0;
};

// ---- USB devices
// -----------------------------------------------------------------------------------------------------

// What identifies a USB device on the bus. It never changes while the port is attached.
struct usb_identity {
    std::string name;          // at most 255 characters, as the next
    std::string friendly_name; // the name shown to users
    // Distinguishes devices with the same two numbers below. At most 127 characters, none of them '\\' or '#'.
    std::string serial_number;
    std::uint16_t vendor_id = 0;
    std::uint16_t product_id = 0;
};

enum class usb_speed { full, high, super };
enum class usb_power { resumed, suspended };

// How a transfer ended. A short packet is ok.
enum class usb_end {
    ok,
    stalled,     // the endpoint answered with a stall
    babble,      // the device sent more than there was room for
    cancelled,   // abort(), a reset or close() ended it
    timed_out,   // the device did not complete it in the time given
    failed,      // no answer, or a damaged one
    no_endpoint, // the selected alternate setting has no such endpoint
    gone         // the device is unplugged
};

// The eight bytes that open a control transfer. Bit 7 of `request_type`: the data come from the device.
struct usb_setup {
    std::uint8_t request_type = 0;
    std::uint8_t request = 0;
    std::uint16_t value = 0;
    std::uint16_t index = 0;
    std::uint16_t length = 0;
};

// A transfer on another endpoint. Bit 7 of `endpoint`: the data come from the device.
struct usb_transfer {
    std::uint8_t endpoint = 0;
    const std::uint8_t* data = nullptr; // to the device: `length` bytes, valid until submit() returns
    std::size_t length = 0;             // bytes to send, or room for those that come
    std::size_t packets = 0;            // of an isochronous transfer, else 0
};

struct usb_packet {
    usb_end end = usb_end::ok;
    std::uint32_t length = 0;
};

// The result of a transfer, successful or not.
struct usb_result {
    usb_end end = usb_end::ok;
    std::size_t count = 0;              // bytes moved
    const std::uint8_t* data = nullptr; // from the device: those bytes, valid during the completion
    std::vector<usb_packet> packets; // of an isochronous transfer; their bytes lie in `data` as in the caller's buffer
};

// Receives the result of one transfer. Does not block, throws nothing, and calls no operation of the port, so that the
// port may hold its locks during the call. A second call for the same transfer has no effect.
using usb_completion = std::function<void(const usb_result&)>;

// A USB device. All operations but identity() happen between open() and close(), from any thread, several at once; a
// call that races with close() on another thread may still arrive after it and must do no harm. None blocks for longer
// than the bus needs for one request, and none may call back into the driver except through a completion. The port
// never keeps memory of the caller: data to the device are read inside the call, data from it are handed over by the
// completion. After the device is gone every operation returns port_status::gone and every transfer ends as
// usb_end::gone at once, pending ones included.
class JV_PLATFORM_API usb_port {
  public:
    usb_port() = default;
    usb_port(const usb_port&) = delete;
    usb_port& operator=(const usb_port&) = delete;
    virtual ~usb_port();

    virtual usb_identity identity() const = 0;

    // Opens the device, once for each handle on it; refused when it does not accept another.
    virtual port_status open() = 0;
    // Reverses one open(). With the last one, pending transfers end as cancelled.
    virtual void close() = 0;

    // Starts a control transfer on endpoint 0. `data`: the `setup.length` bytes for the device, valid until the call
    // returns; null when they come from it. The transfer ends as timed_out after `timeout_ms` (0: never).
    // `done` is called once, from any thread, also before this call returns.
    virtual void control(const usb_setup& setup, const std::uint8_t* data, unsigned timeout_ms,
                         usb_completion done) = 0;
    // Starts a transfer on another endpoint; those on one endpoint are served in the order of their start. It stays
    // pending until the device has sent a short packet or filled the room, or has taken all bytes, or until it fails.
    // `done` as above.
    virtual void submit(const usb_transfer& transfer, usb_completion done) = 0;
    // Ends everything pending on an endpoint (0: control transfers) as cancelled, with the bytes moved so far, before
    // it returns or soon after. ok also when nothing is pending; bad_value for an endpoint that is none.
    virtual port_status abort(std::uint8_t endpoint) = 0;
    // Clears the stall of an endpoint. bad_value for an endpoint that is none.
    virtual port_status reset_endpoint(std::uint8_t endpoint) = 0;

    // The alternate setting of the interface. bad_value for one that the device lacks. What is pending on an
    // endpoint of the old setting ends as cancelled.
    virtual port_status select_alternate(std::uint8_t setting) = 0;
    virtual port_status alternate(std::uint8_t* setting) = 0;
    // Out-parameters are set with ok only.
    virtual port_status speed(usb_speed* speed) = 0;
    virtual port_status bus_address(std::uint8_t* address) = 0;
    virtual port_status power(usb_power* power) = 0;
    virtual port_status set_power(usb_power power) = 0;

    // Resets the device in place: what is pending ends as cancelled, the port stays usable.
    virtual port_status reset_port() = 0;
    // Makes the device leave the bus and come back: this port is gone, and another one takes its place on the bus.
    virtual port_status cycle_port() = 0;
};

// ---- The bus
// ---------------------------------------------------------------------------------------------------------

// Plugs a bridge in: from now on the D2XX driver lists it, after those attached before it whose `order` is not greater,
// byte by byte.
JV_PLATFORM_API void attach(std::shared_ptr<bridge_port> port, const std::string& order = {});
// Unplugs it: it leaves the list, and later calls on its handles find it gone. The port itself must return `gone` from
// now on; sim::simulated_bridge does both. Harmless when it is not attached.
JV_PLATFORM_API void detach(const std::shared_ptr<bridge_port>& port);
// The bridges attached now, in the order of the driver's device list.
JV_PLATFORM_API std::vector<std::shared_ptr<bridge_port>> attached_bridges();

// The same for a USB device: it becomes, or ceases to be, an interface of the class of the USB driver. No two attached
// devices share vendor, product and serial number.
JV_PLATFORM_API void attach(std::shared_ptr<usb_port> port, const std::string& order = {});
JV_PLATFORM_API void detach(const std::shared_ptr<usb_port>& port);
JV_PLATFORM_API std::vector<std::shared_ptr<usb_port>> attached_usb_devices();

// Has `look` called once, before the next look at the bus, which waits for its end: it attaches what is plugged in. Not
// when a device is attached already: then this process simulates its devices, and real ones would take their places.
JV_PLATFORM_API void before_first_look(std::function<void()> look);

} // namespace jorvet::ports
