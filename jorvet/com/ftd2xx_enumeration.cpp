// The FTDI link's device list: the D2XX stock of bridges as records, and the look-ups in it. Any thread.
#include <algorithm>
#include <cstring>

#include <boost/make_shared.hpp>

#include "jorvet/com/usb_ftd2xx_com.h"
#include "jorvet/system/d2xx.h"

namespace {

constexpr std::size_t usual_bridges = 20;

// The driver keeps one stock for the whole process: taking it and reading it must not be overtaken by another thread.
boost::mutex stock_mutex;

std::vector<FT_DEVICE_LIST_INFO_NODE> take_stock() {
    const boost::unique_lock<boost::mutex> lock(stock_mutex);
    DWORD count = 0;
    if (FT_CreateDeviceInfoList(&count) != FT_OK || count == 0)
        return {};
    std::vector<FT_DEVICE_LIST_INFO_NODE> nodes(std::max<std::size_t>(count, usual_bridges));
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
    record->com_type = 0;
    record->flags = node.Flags;
    record->type = node.Type;
    record->id = node.ID;
    record->loc_id = node.LocId;
    return record;
}

template <typename Predicate>
std::vector<boost::shared_ptr<CUsbFtd2xxComInfo>> records_where(Predicate matches) {
    auto records = CUsbFtd2xxCom::get_all_com_info_list();
    const auto differs = [&](const boost::shared_ptr<CUsbFtd2xxComInfo>& record) { return !matches(*record); };
    records.erase(std::remove_if(records.begin(), records.end(), differs), records.end());
    return records;
}

} // namespace

std::vector<boost::shared_ptr<CUsbFtd2xxComInfo>> CUsbFtd2xxCom::get_all_com_info_list() {
    std::vector<boost::shared_ptr<CUsbFtd2xxComInfo>> records;
    for (const FT_DEVICE_LIST_INFO_NODE& node : take_stock())
        records.push_back(record_of(node, records.size()));
    return records;
}

boost::shared_ptr<CUsbFtd2xxComInfo> CUsbFtd2xxCom::get_com_info_by_index(unsigned char index) {
    const auto records = get_all_com_info_list();
    return index < records.size() ? records[index] : boost::make_shared<CUsbFtd2xxComInfo>();
}

std::vector<boost::shared_ptr<CUsbFtd2xxComInfo>> CUsbFtd2xxCom::get_com_info_by_id(unsigned int id) {
    return records_where([&](const CUsbFtd2xxComInfo& record) { return record.id == id; });
}

std::vector<boost::shared_ptr<CUsbFtd2xxComInfo>> CUsbFtd2xxCom::get_com_info_by_name(std::string description) {
    return records_where([&](const CUsbFtd2xxComInfo& record) { return record.description == description; });
}

std::vector<boost::shared_ptr<CUsbFtd2xxComInfo>> CUsbFtd2xxCom::get_com_info_by_sn(std::string serial_number) {
    return records_where([&](const CUsbFtd2xxComInfo& record) { return record.serial_number == serial_number; });
}

boost::shared_ptr<CUsbFtd2xxComInfo> CUsbFtd2xxCom::get_com_info_by_locid(unsigned int loc_id) {
    const auto records = records_where([&](const CUsbFtd2xxComInfo& record) { return record.loc_id == loc_id; });
    return records.empty() ? boost::make_shared<CUsbFtd2xxComInfo>() : records.back();
}
