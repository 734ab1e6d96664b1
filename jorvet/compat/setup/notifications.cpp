// Registrations for device notifications. There are no windows here, so a registration is checked, kept and ended, but
// never notified. Any thread.
#include <cstddef>
#include <cstring>

#include "jorvet/base/never_destroyed.h"
#include "jorvet/compat/handle_table.h"
#include "jorvet/compat/kernel/files.h"

namespace jorvet::compat::setup {

namespace {

struct registration {};

handle_table<registration>& registrations() {
    return never_destroyed<handle_table<registration>, 3>();
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

} // namespace jorvet::compat::setup

using namespace jorvet::compat;
using namespace jorvet::compat::setup;
using kernel::fail;
using kernel::guarded;

HDEVNOTIFY RegisterDeviceNotificationA(HANDLE window, LPVOID filter, DWORD flags) {
    return guarded(__func__, HDEVNOTIFY{}, [&]() -> HDEVNOTIFY {
        if (window == nullptr || filter == nullptr || flags != DEVICE_NOTIFY_WINDOW_HANDLE)
            return fail(ERROR_INVALID_PARAMETER, HDEVNOTIFY{});
        if (const DWORD error = check_filter(filter))
            return fail(error, HDEVNOTIFY{});
        return registrations().add(std::make_shared<registration>());
    });
}

BOOL UnregisterDeviceNotification(HDEVNOTIFY registration) {
    return guarded(__func__, FALSE,
                   [&] { return registrations().remove(registration) ? TRUE : fail(ERROR_INVALID_HANDLE, FALSE); });
}
