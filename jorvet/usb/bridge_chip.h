// What a serial bridge is told in vendor requests on endpoint 0, and what its packets hold. Numbers alone, no I/O.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "jorvet/usb/known_devices.h"

namespace jorvet::usb {

struct bridge_request {
    std::uint8_t request = 0;
    std::uint16_t value = 0;
    std::uint16_t index = 0; // without the number of the port, which the caller adds
};

// The number of a port in the index of each request.
std::uint16_t port_number(bridge_chip chip, std::uint8_t interface);

// Requests of the chip. The two purges are named from the host's side; the chip counts them from its own.
bridge_request reset_request();
bridge_request purge_received_request();
bridge_request purge_unsent_request();
bridge_request data_format_request(unsigned data_bits, unsigned stop_bits, unsigned parity);
// Mode 0, 0x100 (RTS/CTS), 0x200 (DTR/DSR) or 0x400 (XON/XOFF).
bridge_request flow_control_request(unsigned mode, std::uint8_t xon, std::uint8_t xoff);
bridge_request latency_request(std::uint8_t milliseconds);
// The nearest rate that the chip's divisor makes; none when that is 3 % off or more.
std::optional<bridge_request> baud_rate_request(bridge_chip chip, std::uint32_t bits_per_second);

// Each packet begins with two bytes of modem and line status; the bytes received follow.
constexpr std::size_t status_bytes = 2;
// Appends what a transfer received to `bytes` without the status of its packets, and returns how many of those tell of
// a line error (overrun, parity, framing, break).
unsigned strip_status(const std::uint8_t* received, std::size_t count, std::size_t packet_size,
                      std::vector<std::uint8_t>& bytes);

} // namespace jorvet::usb
