// Snapshots of the device interfaces that are present. Only the class of the USB driver has members here. Any thread.
#include <cstddef>
#include <cstring>
#include <vector>

#include "jorvet/base/never_destroyed.h"
#include "jorvet/compat/drivers/usb_driver.h"
#include "jorvet/compat/handle_table.h"
#include "jorvet/compat/kernel/objects.h"

namespace jorvet::compat::setup {

namespace {

// The setup class of USB devices, which the records of devices name; interfaces name the driver's own class.
constexpr GUID setup_class = {0x36FC9E60, 0xC465, 0x11CF, {0x80, 0x56, 0x44, 0x45, 0x53, 0x54, 0, 0}};

using interface_set = std::vector<std::string>; // the paths of the members

handle_table<const interface_set>& sets() {
    return never_destroyed<handle_table<const interface_set>, 1>();
}

bool is_served(const GUID& guid) {
    return std::memcmp(&guid, &usb::interface_class, sizeof(guid)) == 0;
}

interface_set present_interfaces(const GUID& guid) {
    interface_set paths;
    if (is_served(guid))
        for (const auto& port : ports::attached_usb_devices())
            paths.push_back(usb::interface_path(port->identity()));
    return paths;
}

// The records of a member and of its device hold its place in the set, counted from 1.
const std::string* member(const interface_set& set, const SP_DEVICE_INTERFACE_DATA* data) {
    const bool valid = data != nullptr && data->cbSize == sizeof(*data) && is_served(data->InterfaceClassGuid) &&
                       data->Reserved >= 1 && data->Reserved <= set.size();
    return valid ? &set[data->Reserved - 1] : nullptr;
}

template <class Record>
bool is_sized_or_null(const Record* record) {
    return record == nullptr || record->cbSize == sizeof(*record);
}

} // namespace

} // namespace jorvet::compat::setup

using namespace jorvet::compat;
using namespace jorvet::compat::setup;
using kernel::fail;
using kernel::guarded;

HDEVINFO SetupDiGetClassDevsA(const GUID* class_guid, LPCSTR enumerator, HWND parent, DWORD flags) {
    return guarded(__func__, INVALID_HANDLE_VALUE, [&]() -> HANDLE {
        if (class_guid == nullptr || enumerator != nullptr || parent != nullptr ||
            flags != (DIGCF_PRESENT | DIGCF_DEVICEINTERFACE))
            return fail(ERROR_INVALID_PARAMETER, INVALID_HANDLE_VALUE);
        return sets().add(std::make_shared<const interface_set>(present_interfaces(*class_guid)));
    });
}

BOOL SetupDiEnumDeviceInterfaces(HDEVINFO set, SP_DEVINFO_DATA* device, const GUID* class_guid, DWORD index,
                                 SP_DEVICE_INTERFACE_DATA* data) {
    return guarded(__func__, FALSE, [&] {
        const auto members = sets().find(set);
        if (!members)
            return fail(ERROR_INVALID_HANDLE, FALSE);
        if (device != nullptr || class_guid == nullptr)
            return fail(ERROR_INVALID_PARAMETER, FALSE);
        if (data == nullptr || data->cbSize != sizeof(*data))
            return fail(ERROR_INVALID_USER_BUFFER, FALSE);
        if (!is_served(*class_guid) || index >= members->size())
            return fail(ERROR_NO_MORE_ITEMS, FALSE);
        constexpr DWORD active = 1;
        *data = {sizeof(*data), *class_guid, active, ULONG_PTR{index} + 1};
        return TRUE;
    });
}

BOOL SetupDiGetDeviceInterfaceDetailA(HDEVINFO set, SP_DEVICE_INTERFACE_DATA* data,
                                      SP_DEVICE_INTERFACE_DETAIL_DATA_A* detail, DWORD size, LPDWORD required,
                                      SP_DEVINFO_DATA* device) {
    return guarded(__func__, FALSE, [&] {
        const auto members = sets().find(set);
        if (!members)
            return fail(ERROR_INVALID_HANDLE, FALSE);
        const std::string* const path = member(*members, data);
        if (path == nullptr)
            return fail(ERROR_INVALID_PARAMETER, FALSE);
        if (!is_sized_or_null(detail) || (detail == nullptr && size != 0) || !is_sized_or_null(device))
            return fail(ERROR_INVALID_USER_BUFFER, FALSE);
        constexpr DWORD before_path = offsetof(SP_DEVICE_INTERFACE_DETAIL_DATA_A, DevicePath);
        const auto needed = static_cast<DWORD>(before_path + path->size() + 1);
        if (required != nullptr)
            *required = needed;
        if (detail == nullptr || size < needed)
            return fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
        std::memcpy(reinterpret_cast<char*>(detail) + before_path, path->c_str(), path->size() + 1);
        if (device != nullptr)
            *device = {sizeof(*device), setup_class, static_cast<DWORD>(data->Reserved), 0};
        return TRUE;
    });
}

BOOL SetupDiDestroyDeviceInfoList(HDEVINFO set) {
    return guarded(__func__, FALSE, [&] { return sets().remove(set) ? TRUE : fail(ERROR_INVALID_HANDLE, FALSE); });
}
