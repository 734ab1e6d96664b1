// The USB descriptors that Windows declares, as they come over the bus: packed, little-endian. On Windows they are
// those of the system's own headers, so that a program may include winusb.h, too. Layouts of device, configuration,
// interface and endpoint descriptors: Universal Serial Bus (USB) 2.0, chapter 9.6; that of the BOS: USB 3.x,
// chapter 9.6.
#pragma once

#include <cstdint>

#if defined(_WIN32)

#include "jorvet/system/win32.h"

#include <usbspec.h>

#else

#pragma pack(push, 1)

struct USB_DEVICE_DESCRIPTOR {
    std::uint8_t bLength;
    std::uint8_t bDescriptorType;
    std::uint16_t bcdUSB;
    std::uint8_t bDeviceClass;
    std::uint8_t bDeviceSubClass;
    std::uint8_t bDeviceProtocol;
    std::uint8_t bMaxPacketSize0;
    std::uint16_t idVendor;
    std::uint16_t idProduct;
    std::uint16_t bcdDevice;
    std::uint8_t iManufacturer;
    std::uint8_t iProduct;
    std::uint8_t iSerialNumber;
    std::uint8_t bNumConfigurations;
};

struct USB_CONFIGURATION_DESCRIPTOR {
    std::uint8_t bLength;
    std::uint8_t bDescriptorType;
    std::uint16_t wTotalLength;
    std::uint8_t bNumInterfaces;
    std::uint8_t bConfigurationValue;
    std::uint8_t iConfiguration;
    std::uint8_t bmAttributes;
    std::uint8_t MaxPower;
};

struct USB_INTERFACE_DESCRIPTOR {
    std::uint8_t bLength;
    std::uint8_t bDescriptorType;
    std::uint8_t bInterfaceNumber;
    std::uint8_t bAlternateSetting;
    std::uint8_t bNumEndpoints;
    std::uint8_t bInterfaceClass;
    std::uint8_t bInterfaceSubClass;
    std::uint8_t bInterfaceProtocol;
    std::uint8_t iInterface;
};

struct USB_ENDPOINT_DESCRIPTOR {
    std::uint8_t bLength;
    std::uint8_t bDescriptorType;
    std::uint8_t bEndpointAddress;
    std::uint8_t bmAttributes;
    std::uint16_t wMaxPacketSize;
    std::uint8_t bInterval;
};

struct USB_BOS_DESCRIPTOR {
    std::uint8_t bLength;
    std::uint8_t bDescriptorType;
    std::uint16_t wTotalLength;
    std::uint8_t bNumDeviceCaps;
};

#pragma pack(pop)

#endif

static_assert(sizeof(USB_DEVICE_DESCRIPTOR) == 18);
static_assert(sizeof(USB_CONFIGURATION_DESCRIPTOR) == 9);
static_assert(sizeof(USB_INTERFACE_DESCRIPTOR) == 9);
static_assert(sizeof(USB_ENDPOINT_DESCRIPTOR) == 7);
static_assert(sizeof(USB_BOS_DESCRIPTOR) == 5);
