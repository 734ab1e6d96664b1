// Windows: a snapshot of all threads.
#include "jorvet/system/win32.h"
#include "tests/support/process_resources.h"

#include <tlhelp32.h>

namespace jorvet::testing {

std::ptrdiff_t threads_in_process() {
    const HANDLE all = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    THREADENTRY32 thread{};
    thread.dwSize = sizeof thread;
    std::ptrdiff_t count = 0;
    for (BOOL more = Thread32First(all, &thread); more; more = Thread32Next(all, &thread))
        count += thread.th32OwnerProcessID == GetCurrentProcessId();
    CloseHandle(all);
    return count;
}

} // namespace jorvet::testing
