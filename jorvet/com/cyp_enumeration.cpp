// The Cypress link's device list: the driver's devices as records, and the look-ups in it. Any thread.
#include <algorithm>
#include <cctype>
#include <iterator>

#include "jorvet/com/attached_devices.h"
#include "jorvet/com/list_lookup.h"
#include "jorvet/com/usb_cyp_com.h"

namespace {

constexpr int open_first_device = 1;

bool opens(CCyUSBDevice& device, UCHAR index) try {
    return device.Open(index);
} catch (const char*) { // the previous device does not close
    return false;
}

std::string friendly_name(const CCyUSBDevice& device) {
    const char* const name = device.FriendlyName;
    return {name, std::find(name, std::end(device.FriendlyName), '\0')};
}

// A string descriptor as text; what is not ASCII becomes a question mark.
std::string text_of(const WCHAR* characters) {
    std::string text;
    for (; *characters != 0; ++characters)
        text += *characters < 0x80 ? static_cast<char>(*characters) : '?';
    return text;
}

boost::shared_ptr<CUsbCypComInfo> record_of(CCyUSBDevice& device, UCHAR index) {
    auto record = boost::make_shared<CUsbCypComInfo>();
    record->com_type = JV_KIND_CYPRESS;
    record->index = index;
    if (!opens(device, index)) {
        record->in_use = 1;
        return record;
    }
    record->vendor_id = device.VendorId;
    record->product_id = device.ProductId;
    record->description = friendly_name(device);
    const bool usb3 = jorvet::cyusb::is_usb3(device.BcdUsb);
    record->super_speed = usb3 ? 1 : 0;
    record->high_speed = usb3 ? 0 : 1;
    return record;
}

} // namespace

namespace jorvet::com {

bool same_place(const std::string& left, const std::string& right) {
    const auto same = [](unsigned char a, unsigned char b) { return std::tolower(a) == std::tolower(b); };
    return std::equal(left.begin(), left.end(), right.begin(), right.end(), same);
}

attached_device describe(const CCyUSBDevice& device) {
    attached_device found;
    found.kind = JV_KIND_CYPRESS;
    found.index = device.DeviceIndex;
    found.place = device.DevicePath;
    if (device.DeviceHandle == INVALID_HANDLE_VALUE) {
        if (device.LastError == ERROR_ACCESS_DENIED)
            found.not_permitted = JV_YES;
        if (device.LastError == ERROR_SHARING_VIOLATION)
            found.in_use = JV_YES;
        return found;
    }
    found.not_permitted = JV_NO;
    found.speed = cyusb::is_usb3(device.BcdUsb) ? JV_SPEED_SUPER : JV_SPEED_UP_TO_HIGH;
    found.vendor_id = device.VendorId;
    found.product_id = device.ProductId;
    found.serial_number = text_of(device.SerialNumber);
    found.description = friendly_name(device);
    return found;
}

std::vector<attached_device> attached_controllers() {
    std::vector<attached_device> devices;
    const UCHAR count = CCyUSBDevice(nullptr, CYUSBDRV_GUID, 0).DeviceCount();
    for (UCHAR index = 0; index < count; ++index) {
        CCyUSBDevice device(nullptr, CYUSBDRV_GUID, 0); // one for each: what one left behind is not the next one's
        opens(device, index);
        devices.push_back(describe(device));
        devices.back().index = index;
    }
    return devices;
}

} // namespace jorvet::com

std::vector<boost::shared_ptr<CUsbCypComInfo>> CUsbCypCom::get_all_com_info_list() {
    CCyUSBDevice device(nullptr, CYUSBDRV_GUID, open_first_device);
    const UCHAR count = device.DeviceCount();
    std::vector<boost::shared_ptr<CUsbCypComInfo>> records;
    for (UCHAR index = 0; index < count; ++index)
        records.push_back(record_of(device, index));
    return records;
}

boost::shared_ptr<CUsbCypComInfo> CUsbCypCom::get_com_info_by_index(unsigned char index) {
    return jorvet::com::record_at(get_all_com_info_list(), index);
}

std::vector<boost::shared_ptr<CUsbCypComInfo>> CUsbCypCom::get_com_info_by_name(std::string description) {
    return jorvet::com::records_where(get_all_com_info_list(),
                                      [&](const CUsbCypComInfo& record) { return record.description == description; });
}

std::vector<boost::shared_ptr<CUsbCypComInfo>> CUsbCypCom::get_com_info_by_sn(std::string serial_number) {
    return jorvet::com::records_where(
        get_all_com_info_list(), [&](const CUsbCypComInfo& record) { return record.serial_number == serial_number; });
}
