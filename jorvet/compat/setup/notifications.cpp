// Registrations for device notifications. There are no windows here that could be told of a device, so a registration
// is checked, kept and ended, and nothing comes of it. Any thread.
#include <cstddef>
#include <cstring>
#include <new>

#include "jorvet/compat/faults.h"
#include "jorvet/compat/handle_table.h"
#include "jorvet/compat/kernel/files.h"

namespace jorvet::platform::setup {

namespace {

struct registration {};

// Never destroyed: threads that outlive main may still be inside a call.
handle_table<registration>& registrations() {
    static auto& it = *new handle_table<registration>(3);
    return it;
}

DWORD check_handle_filter(const void* filter) {
    DEV_BROADCAST_HANDLE record{};
    std::memcpy(&record, filter, offsetof(DEV_BROADCAST_HANDLE, dbch_hdevnotify));
    return kernel::find_file(record.dbch_handle) ? ERROR_SUCCESS : ERROR_INVALID_HANDLE;
}

// Reads no more of the filter than its size says.
DWORD check_filter(const void* filter) {
    DEV_BROADCAST_HDR header{};
    std::memcpy(&header, filter, sizeof(header));
    if (header.dbch_devicetype == DBT_DEVTYP_DEVICEINTERFACE)
        return header.dbch_size >= offsetof(DEV_BROADCAST_DEVICEINTERFACE_A, dbcc_name) ? ERROR_SUCCESS
                                                                                        : ERROR_INVALID_PARAMETER;
    if (header.dbch_devicetype == DBT_DEVTYP_HANDLE && header.dbch_size >= sizeof(DEV_BROADCAST_HANDLE))
        return check_handle_filter(filter);
    return ERROR_INVALID_PARAMETER;
}

} // namespace

} // namespace jorvet::platform::setup

using namespace jorvet::platform;
using namespace jorvet::platform::setup;
using kernel::fail;

HDEVNOTIFY RegisterDeviceNotificationA(HANDLE window, LPVOID filter, DWORD flags) {
    if (const auto error = faults::due(__func__))
        return fail(*error, HDEVNOTIFY{});
    if (window == nullptr || filter == nullptr || flags != DEVICE_NOTIFY_WINDOW_HANDLE)
        return fail(ERROR_INVALID_PARAMETER, HDEVNOTIFY{});
    if (const DWORD error = check_filter(filter))
        return fail(error, HDEVNOTIFY{});
    try {
        return registrations().add(std::make_shared<registration>());
    } catch (const std::bad_alloc&) {
        return fail(ERROR_NOT_ENOUGH_MEMORY, HDEVNOTIFY{});
    }
}

BOOL UnregisterDeviceNotification(HDEVNOTIFY registration) {
    if (const auto error = faults::due(__func__))
        return fail(*error, FALSE);
    return registrations().remove(registration) ? TRUE : fail(ERROR_INVALID_HANDLE, FALSE);
}
