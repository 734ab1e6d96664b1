// Handles, and what goes for every kind of kernel object: waiting and closing. Any thread.
#include "jorvet/compat/kernel/objects.h"

#include "jorvet/compat/faults.h"

namespace jorvet::platform::kernel {

// Never destroyed: threads that outlive main may still signal.
handle_table<object>& handles() {
    static auto& it = *new handle_table<object>(0);
    return it;
}

} // namespace jorvet::platform::kernel

using namespace jorvet::platform;
using kernel::fail;

DWORD WaitForSingleObject(HANDLE object, DWORD milliseconds) {
    if (const auto error = faults::due(__func__))
        return fail(*error, WAIT_FAILED);
    const auto target = kernel::find_waitable(object);
    if (!target)
        return fail(ERROR_INVALID_HANDLE, WAIT_FAILED);
    return target->wait(milliseconds) ? WAIT_OBJECT_0 : WAIT_TIMEOUT;
}

BOOL CloseHandle(HANDLE object) {
    if (const auto error = faults::due(__func__))
        return fail(*error, FALSE);
    const auto target = kernel::handles().remove(object);
    if (!target)
        return fail(ERROR_INVALID_HANDLE, FALSE);
    target->closed();
    return TRUE;
}
