// What the system tells of its USB devices in sysfs and libusb's cached descriptors, without opening one. Any thread;
// reads a few small files.
#pragma once

#include <optional>
#include <string>

#include "jorvet/usb/context.h"
#include "jorvet/usb/known_devices.h"

namespace jorvet::usb {

// None when the device has no configuration or has left again.
std::optional<seen_device> look_at(libusb_device* device);

// Who has an interface of the device at `place`: the name of the kernel's driver, "usbfs" for a process, empty for
// nobody.
std::string driver_of(const std::string& place, unsigned interface);

} // namespace jorvet::usb
