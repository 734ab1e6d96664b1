// The calling thread's last error and priority.
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "jorvet/compat/kernel/objects.h"

using namespace jorvet::compat;
using kernel::fail;
using kernel::guarded;

namespace {

thread_local DWORD last_error = ERROR_SUCCESS;

// The nice value for a priority. A step of priority is worth five: two steps up are the highest ordinary priority.
int nice_value(int priority) {
    return std::clamp(-5 * priority, -20, 19);
}

} // namespace

DWORD GetLastError() {
    return last_error;
}

void SetLastError(DWORD error) {
    last_error = error;
}

void Sleep(DWORD milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

HANDLE GetCurrentProcess() {
    return reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(-1));
}

HANDLE GetCurrentThread() {
    return reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(-2));
}

BOOL SetThreadPriority(HANDLE thread, int priority) {
    return guarded(__func__, FALSE, [&] {
        if (thread != GetCurrentThread())
            return fail(ERROR_INVALID_HANDLE, FALSE);
        if (priority < -15 || priority > 15)
            return fail(ERROR_INVALID_PARAMETER, FALSE);
        // Most processes may not raise their priority. This is not a failure: a priority is only a request.
        setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), nice_value(priority));
        return TRUE;
    });
}
