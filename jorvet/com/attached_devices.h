// The devices that are attached, of either link, by what they are. Lists and look-ups run on the caller's thread and
// block as long as the drivers take.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <boost/shared_ptr.hpp>

#include "jorvet/base/kinds.h"
#include "jorvet/base/session_numbers.h"
#include "jorvet/com/com_info.h"

class CCyUSBDevice;

namespace jorvet::com {

// One device; what is not known is empty, 0 or JV_UNKNOWN.
struct attached_device {
    unsigned kind = JV_KIND_NONE;
    unsigned index = 0;
    unsigned in_use = JV_UNKNOWN;
    unsigned not_permitted = JV_UNKNOWN;
    unsigned speed = JV_SPEED_UNKNOWN;
    std::uint16_t vendor_id = 0;
    std::uint16_t product_id = 0;
    std::string serial_number;
    std::string description;
    std::string place;
};

// Whether the device that was just opened is the one that was meant. Empty: any is.
using device_check = std::function<bool(const attached_device&)>;

std::vector<attached_device> attached_bridges();
std::vector<attached_device> attached_controllers();
inline std::vector<attached_device> attached_devices(unsigned kind) {
    return kind == JV_KIND_FTDI ? attached_bridges() : attached_controllers();
}

// Places as drivers write them, without regard to case.
bool same_place(const std::string& left, const std::string& right);

attached_device describe(const CUsbFtd2xxComInfo& bridge);
attached_device describe(const CCyUSBDevice& device); // which has been opened, or could not be

// The record of the bridge that this process has open with this handle; of no device when the driver lists none.
boost::shared_ptr<CUsbFtd2xxComInfo> bridge_with_handle(const void* handle);

} // namespace jorvet::com
