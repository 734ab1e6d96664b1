// The descriptors of USB devices, as they come over the bus: packed, little-endian. Those of devices, configurations,
// interfaces, endpoints and the BOS are in jorvet/system/usb_records.h; here are those that Windows has under other
// names. Layouts: USB 3.x, chapter 9.6.
#pragma once

#include <cstdint>

#include "jorvet/system/usb_records.h"

namespace jorvet::cyusb {

// bDescriptorType
namespace descriptor_type {
inline constexpr std::uint8_t device = 0x01;
inline constexpr std::uint8_t configuration = 0x02;
inline constexpr std::uint8_t string = 0x03;
inline constexpr std::uint8_t interface_setting = 0x04; // `interface` is a macro of a system header
inline constexpr std::uint8_t endpoint = 0x05;
inline constexpr std::uint8_t bos = 0x0F;
inline constexpr std::uint8_t endpoint_companion = 0x30;
} // namespace descriptor_type

// bDevCapabilityType
namespace capability_type {
inline constexpr std::uint8_t usb20_extension = 2;
inline constexpr std::uint8_t super_speed = 3;
inline constexpr std::uint8_t container_id = 4;
} // namespace capability_type

// Bits 1 to 0 of an endpoint's bmAttributes
namespace transfer_kind {
inline constexpr std::uint8_t control = 0;
inline constexpr std::uint8_t isochronous = 1;
inline constexpr std::uint8_t bulk = 2;
inline constexpr std::uint8_t interrupt = 3;
inline constexpr std::uint8_t mask = 3;
} // namespace transfer_kind

inline constexpr std::uint8_t direction_in = 0x80; // of bEndpointAddress and bmRequestType: to the host
inline constexpr std::uint8_t get_descriptor = 6;  // bRequest

// Whether a device with this bcdUSB counts as a SuperSpeed one for the link and for the device list: both low bits of
// the major number are set. CCyUSBDevice::IsUsb3, which decides about the BOS, compares the whole major number; the two
// differ for numbers from 7 on, which no device has.
constexpr bool is_usb3(std::uint16_t bcd_usb) {
    return (bcd_usb & 0x0300) == 0x0300;
}

} // namespace jorvet::cyusb

#pragma pack(push, 1)

struct USB_SS_ENDPOINT_COMPANION_DESCRIPTOR {
    std::uint8_t bLength;
    std::uint8_t bDescriptorType;
    std::uint8_t bMaxBurst;
    std::uint8_t bmAttributes;
    std::uint16_t wBytesPerInterval;
};

struct USB_BOS_USB20_DEVICE_EXTENSION {
    std::uint8_t bLength;
    std::uint8_t bDescriptorType;
    std::uint8_t bDevCapabilityType;
    std::uint32_t bmAttributes;
};

struct USB_BOS_SS_DEVICE_CAPABILITY {
    std::uint8_t bLength;
    std::uint8_t bDescriptorType;
    std::uint8_t bDevCapabilityType;
    std::uint8_t bmAttributes;
    std::uint16_t wSpeedsSupported;
    std::uint8_t bFunctionalitySupport;
    std::uint8_t bU1DevExitLat;
    std::uint16_t wU2DevExitLat;
};

struct USB_BOS_CONTAINER_ID {
    std::uint8_t bLength;
    std::uint8_t bDescriptorType;
    std::uint8_t bDevCapabilityType;
    std::uint8_t bReserved;
    std::uint8_t ContainerID[16];
};

#pragma pack(pop)

static_assert(sizeof(USB_SS_ENDPOINT_COMPANION_DESCRIPTOR) == 6);
static_assert(sizeof(USB_BOS_USB20_DEVICE_EXTENSION) == 7);
static_assert(sizeof(USB_BOS_SS_DEVICE_CAPABILITY) == 10);
static_assert(sizeof(USB_BOS_CONTAINER_ID) == 20);
