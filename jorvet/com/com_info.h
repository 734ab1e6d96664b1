// Records that describe attached devices. Enumerations make them, on the heap and as their concrete class; once made
// they are not changed, and any thread may read them through its shared pointer.
#pragma once

#include <cstdint>
#include <string>

// One attached device, or, as made here, none (com_type 0xFF).
struct CComInfo {
    std::string serial_number; // FTDI only
    std::string description;   // FTDI: description; Cypress: friendly name
    std::uint32_t index = 0;   // place in its link's own list: what open_by_index takes
    std::uint8_t in_use = 0;   // FTDI: 1 when opened by anybody; Cypress: 1 when it could not be opened to look at it
    std::uint8_t com_type = 0xFF; // 0 FTDI, 1 Cypress
};

// An FTDI bridge: adds the four numbers of its node in the D2XX device list.
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
