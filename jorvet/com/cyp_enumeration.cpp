// The Cypress link's device list: the driver's devices as records, and the look-ups in it. Any thread.
#include <algorithm>
#include <iterator>

#include "jorvet/com/list_lookup.h"
#include "jorvet/com/usb_cyp_com.h"

namespace {

constexpr int open_first_device = 1;

bool opens(CCyUSBDevice& device, UCHAR index) try {
    return device.Open(index);
} catch (const char*) { // the previous device does not close
    return false;
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
    char* const name = device.FriendlyName;
    record->description.assign(name, std::find(name, std::end(device.FriendlyName), '\0'));
    const bool usb3 = jorvet::cyusb::is_usb3(device.BcdUsb);
    record->super_speed = usb3 ? 1 : 0;
    record->high_speed = usb3 ? 0 : 1;
    return record;
}

} // namespace

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
