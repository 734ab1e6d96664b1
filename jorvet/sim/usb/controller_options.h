// The options of a simulated controller, and its state as tests see it.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "jorvet/ports/ports.h"
#include "jorvet/sim/usb/descriptors.h"

namespace jorvet::sim {

class fx3_boot_loader;

struct controller_options {
    // Of the controller and of the board behind it. Controllers that are plugged in at the same time with the same
    // vendor and product ID need different ones. Cut after 127 characters; '\\' and '#' become '_'.
    std::string serial_number = "JV-1001";
    std::string name = "Jorvet USB controller"; // cut after 255 characters, as the next one
    std::string friendly_name = "Jorvet simulated USB board";
    std::uint16_t vendor_id = 0x04B4;
    std::uint16_t product_id = 0x00F1;
    ports::usb_speed speed = ports::usb_speed::high;
    std::uint8_t bus_address = 1;
    std::optional<usb_descriptors> descriptors;        // board_descriptors() if empty
    std::size_t queue_capacity = std::size_t{4} << 20; // bytes
    std::shared_ptr<fx3_boot_loader> boot_loader;      // answers vendor requests, if there is one
    // How a transfer ends that the host aborts. Some drivers report it as a failed one.
    ports::usb_end end_when_aborted = ports::usb_end::cancelled;
};

// The host's `first`th abort from now on (1: the next), and those after it up to `count`, are refused or, with `late`,
// end their transfers that much later.
struct abort_plan {
    unsigned first = 1, count = 1;
    std::chrono::milliseconds late{0};
};

// Answers a vendor or class request: returns the data for the host (none if the data go to the device), or nothing for
// a stall. Called on any thread, one call at a time.
using control_handler =
    std::function<std::optional<byte_vector>(const ports::usb_setup& setup, const byte_vector& data_to_device)>;

// For tests.
struct controller_state {
    unsigned opens = 0;   // so far
    unsigned handles = 0; // open now
    unsigned aborts = 0, endpoint_resets = 0, port_resets = 0;
    std::uint8_t alternate = 0;
    ports::usb_power power = ports::usb_power::resumed;
    std::size_t overrun_bytes = 0; // lost because the queue was full
};

} // namespace jorvet::sim
