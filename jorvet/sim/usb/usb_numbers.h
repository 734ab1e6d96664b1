// Numbers of the USB standard that the simulated controller needs.
#pragma once

#include <cstddef>
#include <cstdint>

namespace jorvet::sim {

enum class endpoint_kind : std::uint8_t { control, isochronous, bulk, interrupt }; // bits 1..0 of bmAttributes

namespace usb {

enum descriptor_type : std::uint8_t {
    device_descriptor = 0x01,
    configuration_descriptor = 0x02,
    string_descriptor = 0x03,
    interface_descriptor = 0x04,
    endpoint_descriptor = 0x05,
    bos_descriptor = 0x0F,
    capability_descriptor = 0x10,
    companion_descriptor = 0x30
};

enum capability : std::uint8_t { usb20_extension = 2, super_speed_capability = 3, container_id = 4 };

// Places of fields in descriptors.
constexpr std::size_t total_length = 2; // of a configuration and a BOS
constexpr std::size_t configuration_value = 5, configuration_size = 9;
constexpr std::size_t interface_number = 2, interface_setting = 3, interface_endpoint_count = 4, interface_size = 9;
constexpr std::size_t endpoint_address = 2, endpoint_attributes = 3, endpoint_packet_size = 4, endpoint_size = 7;
constexpr std::size_t companion_burst = 2, companion_attributes = 3, companion_size = 6;

// Standard requests: bmRequestType in the high byte, bRequest in the low one.
enum standard_request : std::uint16_t {
    get_device_status = 0x8000,
    get_interface_status = 0x8100,
    get_endpoint_status = 0x8200,
    clear_endpoint_feature = 0x0201,
    set_endpoint_feature = 0x0203,
    get_descriptor = 0x8006,
    get_configuration = 0x8008,
    set_configuration = 0x0009,
    get_interface = 0x810A,
    set_interface = 0x010B
};

constexpr std::uint8_t inbound = 0x80; // of an endpoint's address and of bmRequestType
constexpr std::uint8_t type_mask = 0x60;
constexpr std::uint16_t endpoint_halt = 0; // the feature of an endpoint

} // namespace usb

} // namespace jorvet::sim
