// What a device's configuration and BOS descriptors say, as trees of heap objects owned from the top: configuration,
// interface entries (one for each alternate setting), endpoints; BOS, capability records. No thread, no I/O; a tree is
// read and destroyed by one thread at a time.
//
// The trees are built by walks over the descriptor's bytes, whose content is up to the device. A walk checks lengths
// before it reads and stays inside the bytes. Whatever does not fit (a descriptor without the two bytes of its own
// header, one that extends past the end or is shorter than its record, more endpoints than an entry has slots, too many
// other descriptors among the endpoints of an entry, the next interface before the promised endpoints) ends the walk of
// that entry, or of the tree; what was complete before is kept.
#pragma once

#include <cstddef>

#include "jorvet/cyusb/endpoint.h"
#include "jorvet/cyusb/usb_descriptors.h"
#include "jorvet/system/win32.h"

// Whether a SuperSpeed companion after an endpoint descriptor becomes part of the endpoint or is skipped.
enum class CCyCompanions { Ignored, Parsed };

// One interface descriptor, which is one alternate setting.
class CCyUSBInterface {
  public:
    CCyUSBInterface() = default;
    // Copies the endpoints too, slot 0 included.
    CCyUSBInterface(const CCyUSBInterface& other);
    // From an interface descriptor and what follows it, `size` bytes in all. Endpoints get `device`.
    CCyUSBInterface(HANDLE device, const USB_INTERFACE_DESCRIPTOR* descriptor, std::size_t size,
                    CCyCompanions companions = CCyCompanions::Ignored);
    CCyUSBInterface& operator=(const CCyUSBInterface&) = delete;
    // Destroys the endpoints in all slots.
    ~CCyUSBInterface();

    // Slot 0 is for the endpoint-0 object, which the device puts there; 1 to 31 hold the entry's own endpoints.
    CCyUSBEndPoint* EndPoints[32] = {};
    UCHAR bLength = 0;
    UCHAR bDescriptorType = 0;
    UCHAR bInterfaceNumber = 0;
    UCHAR bAlternateSetting = 0;
    UCHAR bNumEndpoints = 0;
    UCHAR bInterfaceClass = 0;
    UCHAR bInterfaceSubClass = 0;
    UCHAR bInterfaceProtocol = 0;
    UCHAR iInterface = 0;
    UCHAR AlternateCount = 0; // entries of the configuration with this bInterfaceNumber, itself included
    USHORT TotalLength = 0;   // bytes of descriptors that the entry took, its own included
};

// One configuration.
class CCyUSBConfig {
  public:
    CCyUSBConfig() = default;
    // Copies every entry.
    CCyUSBConfig(const CCyUSBConfig& other);
    // From a whole configuration descriptor: wTotalLength bytes that are really there, and at least the header.
    CCyUSBConfig(HANDLE device, const USB_CONFIGURATION_DESCRIPTOR* descriptor,
                 CCyCompanions companions = CCyCompanions::Ignored);
    // The walk itself, over `size` bytes or wTotalLength, whichever is less. Too few for a header: all zero.
    CCyUSBConfig(HANDLE device, const BYTE* bytes, std::size_t size, CCyCompanions companions);
    CCyUSBConfig& operator=(const CCyUSBConfig&) = delete;
    // Destroys the entries. An endpoint in slot 0 of several entries is destroyed once.
    ~CCyUSBConfig();

    CCyUSBInterface* Interfaces[255] = {}; // the first AltInterfaceCount, in descriptor order
    UCHAR bLength = 0;
    UCHAR bDescriptorType = 0;
    USHORT wTotalLength = 0;
    UCHAR bNumInterfaces = 0;
    UCHAR bConfigurationValue = 0;
    UCHAR iConfiguration = 0;
    UCHAR bmAttributes = 0;
    UCHAR MaxPower = 0;
    UCHAR AltInterfaceCount = 0; // entries built
};

// The capabilities of a USB 3.x device that the layer reads, with the standard's fields in their order.
class CCyBosUSB20Extesnion {
  public:
    CCyBosUSB20Extesnion() = default;
    CCyBosUSB20Extesnion(HANDLE device, const USB_BOS_USB20_DEVICE_EXTENSION* descriptor);

    UCHAR bLength = 0;
    UCHAR bDescriptorType = 0;
    UCHAR bDevCapabilityType = 0;
    ULONG bmAttributes = 0;
};

class CCyBosSuperSpeedCapability {
  public:
    CCyBosSuperSpeedCapability() = default;
    CCyBosSuperSpeedCapability(HANDLE device, const USB_BOS_SS_DEVICE_CAPABILITY* descriptor);

    UCHAR bLength = 0;
    UCHAR bDescriptorType = 0;
    UCHAR bDevCapabilityType = 0;
    UCHAR bmAttributes = 0;
    USHORT wSpeedsSupported = 0;
    UCHAR bFunctionalitySupport = 0;
    UCHAR bU1DevExitLat = 0;
    USHORT wU2DevExitLat = 0;
};

class CCyBosContainerID {
  public:
    CCyBosContainerID() = default;
    CCyBosContainerID(HANDLE device, const USB_BOS_CONTAINER_ID* descriptor);

    UCHAR bLength = 0;
    UCHAR bDescriptorType = 0;
    UCHAR bDevCapabilityType = 0;
    UCHAR bReserved = 0;
    UCHAR ContainerID[16] = {};
};

// The BOS descriptor. A capability is null when the device lacks it or sends it incomplete; the later of two of one
// type counts.
class CCyUSBBOS {
  public:
    CCyUSBBOS() = default;
    // From a whole BOS descriptor: wTotalLength bytes that are really there, and at least the header.
    CCyUSBBOS(HANDLE device, const USB_BOS_DESCRIPTOR* descriptor);
    // The walk itself, over `size` bytes or wTotalLength, whichever is less. Too few for a header: all zero.
    CCyUSBBOS(HANDLE device, const BYTE* bytes, std::size_t size);
    CCyUSBBOS(const CCyUSBBOS&) = delete;
    CCyUSBBOS& operator=(const CCyUSBBOS&) = delete;
    ~CCyUSBBOS();

    CCyBosContainerID* ContainerId = nullptr;
    CCyBosUSB20Extesnion* Usb20Extension = nullptr;
    CCyBosSuperSpeedCapability* SsCapability = nullptr;
    UCHAR bLength = 0;
    UCHAR bDescriptorType = 0;
    USHORT wTotalLength = 0;
    UCHAR bNumDeviceCaps = 0;
};

namespace jorvet::cyusb {

// Clears slot 0 of the entries that hold `endpoint` there, for whoever is about to destroy it.
void forget_endpoint0(CCyUSBConfig& config, const CCyUSBEndPoint* endpoint);

} // namespace jorvet::cyusb
