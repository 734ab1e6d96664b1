// Listing and describing devices.
#include "devices.h"

#include <algorithm>
#include <cstring>

#include "jorvet/api/com_info_export.h"
#include "jorvet/com/usb_cyp_com.h"
#include "jorvet/com/usb_ftd2xx_com.h"
#include "settings.h"
#include "text.h"

namespace jorvet::tool {

namespace {

template <std::size_t Size>
std::string field(const char (&text)[Size]) {
    return std::string(text, strnlen(text, Size));
}

std::string usb_id(const COM_INFO& device) {
    if (device.vendor_id == 0 && device.product_id == 0)
        return "-";
    return hex_number(device.vendor_id, 4) + ":" + hex_number(device.product_id, 4);
}

std::string or_dash(const std::string& text) {
    return text.empty() ? "-" : text;
}

} // namespace

std::vector<COM_INFO> attached_devices() {
    std::vector<COM_INFO> devices;
    const auto add = [&](const auto& records) {
        for (const auto& record : records)
            jorvet::api::export_com_info(*record, &devices.emplace_back());
    };
    add(CUsbFtd2xxCom::get_all_com_info_list()); // not JVGetComInfoList, which counts modulo 256 and has no capacity
    add(CUsbCypCom::get_all_com_info_list());
    return devices;
}

std::optional<COM_INFO> listed_device(unsigned int link, unsigned int index) {
    for (const COM_INFO& device : attached_devices())
        if (device.com_type == link && device.index == index)
            return device;
    return std::nullopt;
}

std::string name_of(const COM_INFO& device) {
    return device.com_type == JV_KIND_FTDI ? field(device.serial_number) : field(device.description);
}

std::string aligned(const std::vector<std::vector<std::string>>& rows, const std::string& indent) {
    std::vector<std::size_t> widths;
    for (const auto& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t column = 0; column < row.size(); ++column)
            widths[column] = std::max(widths[column], row[column].size());
    }
    std::string text;
    for (const auto& row : rows) {
        text += indent;
        for (std::size_t column = 0; column + 1 < row.size(); ++column)
            text += row[column] + std::string(widths[column] + 2 - row[column].size(), ' ');
        text += row.back() + '\n';
    }
    return text;
}

std::string device_table(const std::vector<COM_INFO>& devices, const std::string& indent) {
    std::vector<std::vector<std::string>> rows{{"INDEX", "LINK", "SERIAL NUMBER", "USB ID", "IN USE", "DESCRIPTION"}};
    for (const COM_INFO& device : devices)
        rows.push_back({std::to_string(device.index), link_name(device.com_type), or_dash(field(device.serial_number)),
                        usb_id(device), device.in_use ? "yes" : "no", field(device.description)});
    return aligned(rows, indent);
}

nlohmann::ordered_json device_json(const COM_INFO& device) {
    return {{"link", link_name(device.com_type)},
            {"index", device.index},
            {"serial_number", field(device.serial_number)},
            {"description", field(device.description)},
            {"vendor_id", device.vendor_id},
            {"product_id", device.product_id},
            {"in_use", device.in_use != 0}};
}

} // namespace jorvet::tool
