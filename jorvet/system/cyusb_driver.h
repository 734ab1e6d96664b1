// The face of the Cypress USB driver: its request codes and the records that go with them, byte for byte.
// All numbers are little-endian, all records packed. The device layer and the driver's stand-in both use them. Nothing
// here has behaviour or depends on anything else.
#pragma once

#include <cstddef>
#include <cstdint>

namespace jorvet::cyusb {

// The device interface class of the driver, as the system's GUID record.
template <class Guid>
constexpr Guid driver_class() {
    return {0xAE18AA60, 0x7F6A, 0x11D4, {0x97, 0xDD, 0x00, 0x01, 0x02, 0x29, 0xB9, 0x59}};
}

// The codes follow the system's device control layout: device type 0x22, a function number in bits 13 to 2, and how the
// buffers are passed in bits 1 to 0 (0 copied by the system, 3 the caller's own memory). "Same": one buffer is both
// input and output.
namespace driver_request {
inline constexpr std::uint32_t driver_version = 0x00220000;    // 4 bytes, same
inline constexpr std::uint32_t usbdi_version = 0x00220004;     // 4 bytes, same
inline constexpr std::uint32_t get_alternate = 0x00220008;     // 1 byte, same: the current alternate setting
inline constexpr std::uint32_t select_alternate = 0x0022000C;  // 1 byte, same: the setting to select
inline constexpr std::uint32_t bus_address = 0x00220010;       // 1 byte, same
inline constexpr std::uint32_t get_power = 0x00220018;         // 4 bytes, same: a power_state
inline constexpr std::uint32_t set_power = 0x0022001C;         // 4 bytes, same: a power_state
inline constexpr std::uint32_t control_transfer = 0x00220020;  // XferRequest and data, same
inline constexpr std::uint32_t buffered_transfer = 0x00220024; // XferRequest, packet table and data, same
inline constexpr std::uint32_t cycle_port = 0x00220028;        // no buffers: the device enumerates anew
inline constexpr std::uint32_t reset_pipe = 0x0022002C;        // in: endpoint address
inline constexpr std::uint32_t reset_parent_port = 0x00220030; // no buffers
inline constexpr std::uint32_t get_transfer_size = 0x00220034; // transfer_size_record, same
inline constexpr std::uint32_t set_transfer_size = 0x00220038; // transfer_size_record, same
inline constexpr std::uint32_t device_name = 0x0022003C;       // 256 bytes, same
inline constexpr std::uint32_t friendly_name = 0x00220040;     // 256 bytes, same
inline constexpr std::uint32_t abort_pipe = 0x00220044;        // in: endpoint address
inline constexpr std::uint32_t direct_transfer = 0x0022004B;   // in: XferRequest and packet table; out: the data
inline constexpr std::uint32_t bus_speed = 0x0022004C;         // 4 bytes, same: a speed_code
} // namespace driver_request

// Values of bus_speed, get_power and set_power.
namespace speed_code {
inline constexpr std::uint32_t high = 2;
inline constexpr std::uint32_t super = 4;
} // namespace speed_code
namespace power_state {
inline constexpr std::uint32_t resumed = 1;
inline constexpr std::uint32_t suspended = 4;
} // namespace power_state

inline constexpr std::size_t name_size = 256; // of device_name and friendly_name

#pragma pack(push, 1)

// Describes one transfer; a packet table and a copy of the data may follow in the same block. The driver writes the two
// status words. In a buffered transfer the whole block comes back, and the driver's byte count covers it all; in a
// direct one the data are in the caller's memory, and the byte count is theirs alone.
struct XferRequest {
    std::uint8_t bmRequestType; // these five: the setup packet of a control transfer, 0 otherwise
    std::uint8_t bRequest;
    std::uint16_t wValue;
    std::uint16_t wIndex;
    std::uint16_t wLength;
    std::uint32_t TimeOut; // of a control transfer, in seconds
    std::uint8_t Reserved;
    std::uint8_t EndpointAddress; // 0 for endpoint 0
    std::uint32_t NtStatus;       // how the driver completed the request; 0: success
    std::uint32_t UsbdStatus;     // how the bus transfer ended; 0: success
    std::uint32_t PacketTableOffset;
    std::uint32_t PacketTableLength;
    std::uint32_t DataOffset; // 0 in direct mode
    std::uint32_t DataLength; // 0 in direct mode
};

struct transfer_size_record {
    std::uint8_t endpoint_address;
    std::uint32_t size;
};

#pragma pack(pop)

static_assert(sizeof(XferRequest) == 38);
static_assert(offsetof(XferRequest, TimeOut) == 8 && offsetof(XferRequest, EndpointAddress) == 13);
static_assert(offsetof(XferRequest, NtStatus) == 14 && offsetof(XferRequest, UsbdStatus) == 18);
static_assert(offsetof(XferRequest, PacketTableOffset) == 22 && offsetof(XferRequest, DataOffset) == 30);
static_assert(sizeof(transfer_size_record) == 5);

} // namespace jorvet::cyusb

using jorvet::cyusb::XferRequest;

// One packet of an isochronous transfer, as the driver writes it into the packet table.
struct CCyIsoPktInfo {
    std::uint32_t Status; // bus status of the packet; 0: success
    std::uint32_t Length; // number of bytes moved
};
static_assert(sizeof(CCyIsoPktInfo) == 8);
