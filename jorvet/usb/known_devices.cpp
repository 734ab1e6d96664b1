// The tables of known devices, and names made of what the bus tells.
#include "jorvet/usb/known_devices.h"

#include <algorithm>
#include <iterator>

namespace jorvet::usb {

namespace {

constexpr std::uint16_t bridge_vendor = 0x0403;
constexpr std::uint16_t bridge_products[] = {0x6001, 0x6010, 0x6011, 0x6014, 0x6015};
constexpr std::uint16_t controller_vendor = 0x04B4;
constexpr std::uint16_t controller_products[] = {0x00F0, 0x00F1, 0x00F3, 0x8613}; // 00F3, 8613: the boot loaders
constexpr std::uint8_t vendor_specific = 0xFF;

constexpr std::size_t longest_bridge_serial_number = 15;
constexpr std::size_t longest_bridge_description = 63;
constexpr std::size_t longest_serial_number = 127;
constexpr std::size_t longest_name = 255;

template <class Table>
bool holds(const Table& table, std::uint16_t product_id) {
    return std::find(std::begin(table), std::end(table), product_id) != std::end(table);
}

// The numbers by which the D2XX driver calls the chips.
std::uint32_t driver_type_of(bridge_chip chip) {
    switch (chip) {
    case bridge_chip::bm:
        return 0;
    case bridge_chip::am:
        return 1;
    case bridge_chip::c2232:
        return 4;
    case bridge_chip::r:
        return 5;
    case bridge_chip::h2232:
        return 6;
    case bridge_chip::h4232:
        return 7;
    case bridge_chip::h232:
        return 8;
    case bridge_chip::x:
        break;
    }
    return 9;
}

// `text` and what tells it from its likes, of at most `longest` characters: the text is what gives way.
std::string with_suffix(std::string text, const std::string& suffix, std::size_t longest) {
    text.resize(std::min(text.size(), longest - std::min(longest, suffix.size())));
    return (text + suffix).substr(0, longest);
}

} // namespace

device_kind kind_of(const seen_device& device, const std::vector<added_id>& added) {
    for (const added_id& id : added)
        if (id.vendor_id == device.vendor_id && id.product_id == device.product_id)
            return id.kind;
    if (device.vendor_id == bridge_vendor && holds(bridge_products, device.product_id))
        return device_kind::bridge;
    const bool known = holds(controller_products, device.product_id) || device.first_interface_class == vendor_specific;
    return device.vendor_id == controller_vendor && known ? device_kind::controller : device_kind::none;
}

std::string place_of(const seen_device& device) {
    std::string place = std::to_string(device.bus);
    char separator = '-';
    for (const std::uint8_t port : device.path) {
        place += separator + std::to_string(port);
        separator = '.';
    }
    return place;
}

std::string order_of(const seen_device& device, std::uint8_t interface) {
    std::string order(1, static_cast<char>(device.bus));
    order.append(device.path.begin(), device.path.end());
    order += '\0'; // a hub's own port comes before those behind it
    order += static_cast<char>(interface);
    return order;
}

bridge_chip chip_of(std::uint16_t release) {
    switch (release >> 8) {
    case 0x02:
        return bridge_chip::am;
    case 0x05:
        return bridge_chip::c2232;
    case 0x06:
        return bridge_chip::r;
    case 0x07:
        return bridge_chip::h2232;
    case 0x08:
        return bridge_chip::h4232;
    case 0x09:
        return bridge_chip::h232;
    case 0x10:
        return bridge_chip::x;
    default:
        return bridge_chip::bm;
    }
}

unsigned ports_of(bridge_chip chip) {
    switch (chip) {
    case bridge_chip::c2232:
    case bridge_chip::h2232:
        return 2;
    case bridge_chip::h4232:
        return 4;
    default:
        return 1;
    }
}

ports::bridge_identity bridge_identity_of(const seen_device& device, std::uint8_t interface, bool taken) {
    const bridge_chip chip = chip_of(device.release);
    const bool several = ports_of(chip) > 1;
    const std::string letter(several ? 1 : 0, static_cast<char>('A' + interface));
    const std::string place = device.serial_number.empty() || taken ? "@" + place_of(device) : "";
    ports::bridge_identity identity;
    identity.serial_number = with_suffix(device.serial_number, place + letter, longest_bridge_serial_number);
    identity.description =
        with_suffix(device.product, several ? " " + letter : std::string(), longest_bridge_description);
    identity.type = driver_type_of(chip);
    identity.id = std::uint32_t{device.vendor_id} << 16 | device.product_id;
    identity.location = device.bus; // then a digit for each port on the way, and the interface
    for (const std::uint8_t port : device.path)
        identity.location = identity.location << 4 | (port & 0xFu);
    if (several)
        identity.location = identity.location << 4 | (interface + 1u);
    return identity;
}

ports::usb_identity controller_identity_of(const seen_device& device, bool taken) {
    ports::usb_identity identity;
    identity.name = device.product.substr(0, longest_name);
    identity.friendly_name = identity.name;
    identity.serial_number =
        with_suffix(device.serial_number, device.serial_number.empty() || taken ? "@" + place_of(device) : "",
                    longest_serial_number);
    for (char& letter : identity.serial_number)
        if (letter == '\\' || letter == '#')
            letter = '_';
    identity.vendor_id = device.vendor_id;
    identity.product_id = device.product_id;
    return identity;
}

} // namespace jorvet::usb
