// The descriptors of the simulated USB controller, as bytes on the bus. No thread, no lock.
#pragma once

#include <string>

#include "jorvet/ports/ports.h"
#include "jorvet/sim/support/bytes.h"

namespace jorvet::sim {

struct usb_language {
    std::uint16_t id = 0;
    std::vector<std::u16string> texts; // of the string indices from 1 on; cut after 126 characters on the bus
};

// A device's descriptors, each complete as it is sent on the bus.
struct usb_descriptors {
    byte_vector device;
    std::vector<byte_vector> configurations;
    byte_vector bos; // empty: it has none
    std::vector<usb_language> languages;
};

// Those of a simulated board: one configuration, whose interface 0 has bulk endpoints 0x81 and 0x02 in alternate
// setting 0, and with them interrupt endpoints 0x83 and 0x04 and isochronous endpoints 0x85 and 0x06 in setting 1.
// Manufacturer, product and serial number are strings 1 to 3, in the languages 0x0407 and 0x0409.
JV_SIM_API usb_descriptors board_descriptors(ports::usb_speed speed, std::uint16_t vendor_id, std::uint16_t product_id,
                                             const std::string& serial_number);

} // namespace jorvet::sim
