// The FTDI link's device list: the D2XX device list as records, and the look-ups in it. Any thread.
#include <algorithm>
#include <cstdio>

#include "jorvet/com/attached_devices.h"
#include "jorvet/com/list_lookup.h"
#include "jorvet/com/usb_ftd2xx_com.h"
#include "jorvet/system/d2xx.h"

namespace {

// Room for at least so many nodes, should the driver report more between the two calls than at the first.
constexpr std::size_t min_nodes = 20;

// The driver keeps one device list per process: no other thread may rebuild it between the two calls.
boost::mutex list_mutex;

std::vector<FT_DEVICE_LIST_INFO_NODE> device_nodes() {
    const boost::unique_lock<boost::mutex> lock(list_mutex);
    DWORD count = 0;
    if (FT_CreateDeviceInfoList(&count) != FT_OK || count == 0)
        return {};
    std::vector<FT_DEVICE_LIST_INFO_NODE> nodes(std::max<std::size_t>(count, min_nodes));
    if (FT_GetDeviceInfoList(nodes.data(), &count) != FT_OK)
        return {};
    nodes.resize(std::min<std::size_t>(count, nodes.size()));
    return nodes;
}

template <std::size_t N>
std::string text_of(const char (&field)[N]) {
    return {field, std::find(field, field + N, '\0')};
}

boost::shared_ptr<CUsbFtd2xxComInfo> record_of(const FT_DEVICE_LIST_INFO_NODE& node, std::size_t index) {
    auto record = boost::make_shared<CUsbFtd2xxComInfo>();
    record->serial_number = text_of(node.SerialNumber);
    record->description = text_of(node.Description);
    record->index = static_cast<std::uint32_t>(index);
    record->in_use = (node.Flags & FT_FLAGS_OPENED) != 0 ? 1 : 0;
    record->com_type = JV_KIND_FTDI;
    record->flags = node.Flags;
    record->type = node.Type;
    record->id = node.ID;
    record->loc_id = node.LocId;
    return record;
}

template <typename Predicate>
std::vector<boost::shared_ptr<CUsbFtd2xxComInfo>> bridges_where(Predicate matches) {
    return jorvet::com::records_where(CUsbFtd2xxCom::get_all_com_info_list(), matches);
}

} // namespace

namespace jorvet::com {

attached_device describe(const CUsbFtd2xxComInfo& bridge) {
    char place[11];
    std::snprintf(place, sizeof(place), "0x%x", static_cast<unsigned>(bridge.loc_id));
    attached_device device;
    device.kind = bridge.com_type;
    device.index = bridge.index;
    device.in_use = bridge.in_use != 0 ? JV_YES : JV_NO;
    device.speed = JV_SPEED_UP_TO_HIGH;
    device.vendor_id = static_cast<std::uint16_t>(bridge.id >> 16);
    device.product_id = static_cast<std::uint16_t>(bridge.id & 0xFFFF);
    device.serial_number = bridge.serial_number;
    device.description = bridge.description;
    device.place = place;
    return device;
}

std::vector<attached_device> attached_bridges() {
    std::vector<attached_device> devices;
    for (const auto& bridge : CUsbFtd2xxCom::get_all_com_info_list())
        devices.push_back(describe(*bridge));
    return devices;
}

boost::shared_ptr<CUsbFtd2xxComInfo> bridge_with_handle(const void* handle) {
    const std::vector<FT_DEVICE_LIST_INFO_NODE> nodes = device_nodes();
    for (std::size_t i = 0; i < nodes.size(); ++i)
        if (nodes[i].ftHandle == handle)
            return record_of(nodes[i], i);
    return boost::make_shared<CUsbFtd2xxComInfo>();
}

} // namespace jorvet::com

std::vector<boost::shared_ptr<CUsbFtd2xxComInfo>> CUsbFtd2xxCom::get_all_com_info_list() {
    std::vector<boost::shared_ptr<CUsbFtd2xxComInfo>> records;
    for (const FT_DEVICE_LIST_INFO_NODE& node : device_nodes())
        records.push_back(record_of(node, records.size()));
    return records;
}

boost::shared_ptr<CUsbFtd2xxComInfo> CUsbFtd2xxCom::get_com_info_by_index(unsigned char index) {
    return jorvet::com::record_at(get_all_com_info_list(), index);
}

std::vector<boost::shared_ptr<CUsbFtd2xxComInfo>> CUsbFtd2xxCom::get_com_info_by_id(unsigned int id) {
    return bridges_where([&](const CUsbFtd2xxComInfo& record) { return record.id == id; });
}

std::vector<boost::shared_ptr<CUsbFtd2xxComInfo>> CUsbFtd2xxCom::get_com_info_by_name(std::string description) {
    return bridges_where([&](const CUsbFtd2xxComInfo& record) { return record.description == description; });
}

std::vector<boost::shared_ptr<CUsbFtd2xxComInfo>> CUsbFtd2xxCom::get_com_info_by_sn(std::string serial_number) {
    return bridges_where([&](const CUsbFtd2xxComInfo& record) { return record.serial_number == serial_number; });
}

boost::shared_ptr<CUsbFtd2xxComInfo> CUsbFtd2xxCom::get_com_info_by_locid(unsigned int loc_id) {
    const auto records = bridges_where([&](const CUsbFtd2xxComInfo& record) { return record.loc_id == loc_id; });
    return records.empty() ? boost::make_shared<CUsbFtd2xxComInfo>() : records.back();
}
