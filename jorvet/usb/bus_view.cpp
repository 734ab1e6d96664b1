// Reads sysfs, whose texts anybody may read.
#include "jorvet/usb/bus_view.h"

#include <array>
#include <climits>
#include <fstream>

#include <unistd.h>

namespace jorvet::usb {

namespace {

constexpr const char* devices = "/sys/bus/usb/devices/";
constexpr int deepest_path = 7; // hubs, by the USB standard

// The first line of a file; empty when there is none.
std::string line_of(const std::string& path) {
    std::string line;
    std::getline(std::ifstream(path), line);
    return line;
}

} // namespace

std::optional<seen_device> look_at(libusb_device* device) {
    libusb_device_descriptor descriptor{};
    libusb_config_descriptor* config = nullptr;
    if (libusb_get_device_descriptor(device, &descriptor) != LIBUSB_SUCCESS ||
        libusb_get_active_config_descriptor(device, &config) != LIBUSB_SUCCESS)
        return {};
    seen_device seen;
    seen.interfaces = config->bNumInterfaces;
    if (seen.interfaces > 0 && config->interface[0].num_altsetting > 0)
        seen.first_interface_class = config->interface[0].altsetting[0].bInterfaceClass;
    libusb_free_config_descriptor(config);
    std::array<std::uint8_t, deepest_path> path{};
    const int depth = libusb_get_port_numbers(device, path.data(), deepest_path);
    seen.bus = libusb_get_bus_number(device);
    seen.path.assign(path.begin(), path.begin() + std::max(depth, 0));
    seen.vendor_id = descriptor.idVendor;
    seen.product_id = descriptor.idProduct;
    seen.release = descriptor.bcdDevice;
    const std::string folder = devices + place_of(seen);
    seen.product = line_of(folder + "/product");
    seen.serial_number = line_of(folder + "/serial");
    return seen;
}

std::string driver_of(const std::string& place, unsigned interface) {
    const std::string link = devices + place + ":1." + std::to_string(interface) + "/driver";
    std::array<char, PATH_MAX> target{};
    const ssize_t length = readlink(link.c_str(), target.data(), target.size());
    const std::string driver(target.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
    return driver.substr(driver.rfind('/') + 1);
}

} // namespace jorvet::usb
