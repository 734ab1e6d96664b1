// Which devices on the bus are ours, what they are called, and where they stand in the lists. Decisions alone: what is
// read of the bus comes in, nothing is read here.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "jorvet/ports/ports.h"

namespace jorvet::usb {

enum class device_kind { none, bridge, controller };

// What the system tells of a device without opening it.
struct seen_device {
    std::uint8_t bus = 0;
    std::vector<std::uint8_t> path; // the hubs' port numbers, from the bus down
    std::uint16_t vendor_id = 0;
    std::uint16_t product_id = 0;
    std::uint16_t release = 0; // bcdDevice
    std::uint8_t interfaces = 0;
    std::uint8_t first_interface_class = 0;
    std::string product; // texts of the device; empty when it has none
    std::string serial_number;
};

// Further devices that are ours, by their vendor and product IDs.
struct added_id {
    std::uint16_t vendor_id = 0;
    std::uint16_t product_id = 0;
    device_kind kind = device_kind::none;
};

device_kind kind_of(const seen_device& device, const std::vector<added_id>& added);

// The device's place: "1-2.3", as the system writes it.
std::string place_of(const seen_device& device);
// A key that sorts devices by bus and place.
std::string order_of(const seen_device& device, std::uint8_t interface = 0);

// The generations of bridge chips that differ in what is asked of them.
enum class bridge_chip { am, bm, c2232, r, h2232, h4232, h232, x };
bridge_chip chip_of(std::uint16_t release);
// One port for each interface.
unsigned ports_of(bridge_chip chip);

// `taken` tells whether another attached device of the same kind has the serial number already.
ports::bridge_identity bridge_identity_of(const seen_device& device, std::uint8_t interface, bool taken);
ports::usb_identity controller_identity_of(const seen_device& device, bool taken);

} // namespace jorvet::usb
