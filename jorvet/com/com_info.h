// Records that describe attached devices. The device lists make them on the heap, as their concrete class, and hold
// them by boost::shared_ptr. A list's records are not changed after it returns them, and any thread may read them. The
// record of an open link is replaced or changed by open_by_index alone.
#pragma once

#include <cstdint>
#include <string>

#include "jorvet/base/kinds.h"

// One attached device or, default-constructed, none.
struct CComInfo {
    std::string serial_number; // FTDI only
    std::string description;   // FTDI: description; Cypress: friendly name
    std::uint32_t index = 0;   // place in its link's own list: what open_by_index takes
    std::uint8_t in_use = 0;   // FTDI: 1 if any program has it open; Cypress: 1 if the list could not open it
    std::uint8_t com_type = JV_KIND_NONE;
};

// An FTDI bridge: adds the numbers of its node in the D2XX device list.
struct CUsbFtd2xxComInfo : CComInfo {
    std::uint32_t flags = 0; // bit 0: opened
    std::uint32_t type = 0;
    std::uint32_t id = 0;     // USB vendor (high half) and product ID
    std::uint32_t loc_id = 0; // place on the bus
};

// A Cypress device: adds what its device descriptor says.
struct CUsbCypComInfo : CComInfo {
    std::uint16_t vendor_id = 0;
    std::uint16_t product_id = 0;
    std::uint8_t high_speed = 0;  // 1: not USB 3
    std::uint8_t super_speed = 0; // 1: USB 3
};
