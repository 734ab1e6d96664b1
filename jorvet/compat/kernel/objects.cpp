// Handles, and what all kinds of kernel objects have in common: waiting and closing. Any thread.
#include "jorvet/compat/kernel/objects.h"

#include "jorvet/base/never_destroyed.h"

namespace jorvet::compat::kernel {

handle_table<object>& handles() {
    return never_destroyed<handle_table<object>, 0>();
}

} // namespace jorvet::compat::kernel

using namespace jorvet::compat;
using kernel::fail;
using kernel::guarded;

DWORD WaitForSingleObject(HANDLE object, DWORD milliseconds) {
    return guarded(__func__, WAIT_FAILED, [&] {
        const auto target = kernel::find_waitable(object);
        if (!target)
            return fail(ERROR_INVALID_HANDLE, WAIT_FAILED);
        return target->wait(milliseconds) ? WAIT_OBJECT_0 : WAIT_TIMEOUT;
    });
}

BOOL GetProcessHandleCount(HANDLE process, DWORD* count) {
    return guarded(__func__, FALSE, [&] {
        if (process != GetCurrentProcess())
            return fail(ERROR_INVALID_HANDLE, FALSE);
        *count = static_cast<DWORD>(kernel::handles().size());
        return TRUE;
    });
}

BOOL CloseHandle(HANDLE object) {
    return guarded(__func__, FALSE, [&] {
        const auto target = kernel::handles().remove(object);
        if (!target)
            return fail(ERROR_INVALID_HANDLE, FALSE);
        target->closed();
        return TRUE;
    });
}
