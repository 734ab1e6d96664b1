// Copying descriptor fields between the packed records of usb_descriptors.h and the objects of descriptor_tree.h, which
// name their fields alike, in either direction. Internal to cyusb/. No state; any thread.
#pragma once

#include <cstring>

namespace jorvet::cyusb {

template <class To, class From>
void copy_configuration_fields(To& to, const From& from) {
    to.bLength = from.bLength;
    to.bDescriptorType = from.bDescriptorType;
    to.wTotalLength = from.wTotalLength;
    to.bNumInterfaces = from.bNumInterfaces;
    to.bConfigurationValue = from.bConfigurationValue;
    to.iConfiguration = from.iConfiguration;
    to.bmAttributes = from.bmAttributes;
    to.MaxPower = from.MaxPower;
}

template <class To, class From>
void copy_interface_fields(To& to, const From& from) {
    to.bLength = from.bLength;
    to.bDescriptorType = from.bDescriptorType;
    to.bInterfaceNumber = from.bInterfaceNumber;
    to.bAlternateSetting = from.bAlternateSetting;
    to.bNumEndpoints = from.bNumEndpoints;
    to.bInterfaceClass = from.bInterfaceClass;
    to.bInterfaceSubClass = from.bInterfaceSubClass;
    to.bInterfaceProtocol = from.bInterfaceProtocol;
    to.iInterface = from.iInterface;
}

template <class To, class From>
void copy_bos_fields(To& to, const From& from) {
    to.bLength = from.bLength;
    to.bDescriptorType = from.bDescriptorType;
    to.wTotalLength = from.wTotalLength;
    to.bNumDeviceCaps = from.bNumDeviceCaps;
}

template <class To, class From>
void copy_usb20_extension_fields(To& to, const From& from) {
    to.bLength = from.bLength;
    to.bDescriptorType = from.bDescriptorType;
    to.bDevCapabilityType = from.bDevCapabilityType;
    to.bmAttributes = from.bmAttributes;
}

template <class To, class From>
void copy_super_speed_fields(To& to, const From& from) {
    to.bLength = from.bLength;
    to.bDescriptorType = from.bDescriptorType;
    to.bDevCapabilityType = from.bDevCapabilityType;
    to.bmAttributes = from.bmAttributes;
    to.wSpeedsSupported = from.wSpeedsSupported;
    to.bFunctionalitySupport = from.bFunctionalitySupport;
    to.bU1DevExitLat = from.bU1DevExitLat;
    to.wU2DevExitLat = from.wU2DevExitLat;
}

template <class To, class From>
void copy_container_id_fields(To& to, const From& from) {
    to.bLength = from.bLength;
    to.bDescriptorType = from.bDescriptorType;
    to.bDevCapabilityType = from.bDevCapabilityType;
    to.bReserved = from.bReserved;
    std::memcpy(to.ContainerID, from.ContainerID, sizeof(to.ContainerID));
}

} // namespace jorvet::cyusb
