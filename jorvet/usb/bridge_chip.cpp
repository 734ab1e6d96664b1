// The numbers of the bridge chips' requests.
#include "jorvet/usb/bridge_chip.h"

#include <algorithm>

namespace jorvet::usb {

namespace {

enum : std::uint8_t { request_reset = 0, request_flow = 2, request_baud = 3, request_format = 4, request_latency = 9 };

constexpr std::uint8_t line_errors = 0x1E;     // of the second status byte: overrun, parity, framing, break
constexpr std::uint32_t slow_clock = 24000000; // eighths of the highest rate of the full-speed chips
constexpr std::uint32_t fast_clock = 96000000; // of the high-speed ones
constexpr std::uint32_t least_divisor = 8;     // in eighths
constexpr std::uint32_t greatest_divisor = 0x3FFF * 8 + 7;
constexpr std::uint32_t fast_from = 1200; // bits a second: slower ones need the slow clock
constexpr std::uint32_t use_fast_clock = 1u << 17;

// The chip writes eighths of a divisor as one of these, above its whole part.
constexpr std::uint32_t eighths[] = {0, 3, 2, 4, 1, 5, 6, 7};

bool is_fast(bridge_chip chip) {
    return chip == bridge_chip::h2232 || chip == bridge_chip::h4232 || chip == bridge_chip::h232;
}

// The divisor that the chip has next to the one wanted. Between 1 and 2 it has 1.5 alone; the oldest one has no eighths
// but 1, 2 and 4.
std::uint32_t allowed(bridge_chip chip, std::uint32_t divisor) {
    if (divisor < 16)
        return divisor < 10 ? 8 : divisor < 14 ? 12 : 16;
    constexpr std::uint32_t oldest[] = {0, 1, 2, 2, 4, 4, 4, 8};
    return chip == bridge_chip::am ? divisor / 8 * 8 + oldest[divisor % 8] : divisor;
}

bool counts_ports(bridge_chip chip) {
    return ports_of(chip) > 1 || chip == bridge_chip::h232;
}

} // namespace

std::uint16_t port_number(bridge_chip chip, std::uint8_t interface) {
    return counts_ports(chip) ? static_cast<std::uint16_t>(interface + 1) : 0;
}

bridge_request reset_request() {
    return {request_reset, 0, 0};
}

bridge_request purge_received_request() {
    return {request_reset, 2, 0};
}

bridge_request purge_unsent_request() {
    return {request_reset, 1, 0};
}

bridge_request data_format_request(unsigned data_bits, unsigned stop_bits, unsigned parity) {
    const unsigned stop = stop_bits == 2 ? 2 : 0;
    return {request_format, static_cast<std::uint16_t>(data_bits | parity << 8 | stop << 11), 0};
}

bridge_request flow_control_request(unsigned mode, std::uint8_t xon, std::uint8_t xoff) {
    const unsigned characters = mode == 0x400 ? unsigned{xoff} << 8 | xon : 0u;
    return {request_flow, static_cast<std::uint16_t>(characters), static_cast<std::uint16_t>(mode)};
}

bridge_request latency_request(std::uint8_t milliseconds) {
    return {request_latency, milliseconds, 0};
}

std::optional<bridge_request> baud_rate_request(bridge_chip chip, std::uint32_t bits_per_second) {
    const bool fast = is_fast(chip) && bits_per_second >= fast_from;
    const std::uint32_t clock = fast ? fast_clock : slow_clock;
    if (bits_per_second == 0)
        return {};
    const std::uint32_t nearest = (clock + bits_per_second / 2) / bits_per_second;
    const std::uint32_t divisor = allowed(chip, std::clamp(nearest, least_divisor, greatest_divisor));
    const std::uint64_t product = std::uint64_t{divisor} * bits_per_second; // the clock, were the rate exact
    if (product * 100 > std::uint64_t{clock} * 103 || product * 100 < std::uint64_t{clock} * 97)
        return {};
    std::uint32_t code = divisor / 8 | eighths[divisor % 8] << 14;
    if (divisor < 16) // the two highest rates have codes of their own
        code = divisor == 8 ? 0 : 1;
    if (fast)
        code |= use_fast_clock;
    // The bits above the sixteenth travel in the index: in its high byte where the low one names the port.
    const std::uint32_t high = code >> 16;
    return bridge_request{request_baud, static_cast<std::uint16_t>(code),
                          static_cast<std::uint16_t>(counts_ports(chip) ? high << 8 : high)};
}

unsigned strip_status(const std::uint8_t* received, std::size_t count, std::size_t packet_size,
                      std::vector<std::uint8_t>& bytes) {
    unsigned errors = 0;
    for (std::size_t at = 0; at + status_bytes <= count; at += packet_size) {
        const std::size_t end = std::min(count, at + packet_size);
        errors += (received[at + 1] & line_errors) != 0 ? 1 : 0;
        bytes.insert(bytes.end(), received + at + status_bytes, received + end);
    }
    return errors;
}

} // namespace jorvet::usb
