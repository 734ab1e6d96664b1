// Kernel objects and their handles: what the functions of win32.h share. Each kind of object has a file of its own
// beside this one; handles, waits and closing are the same for all.
#pragma once

#include "jorvet/platform/handle_table.h"
#include "jorvet/platform/win32.h"

namespace jorvet::platform::kernel {

// Something that a handle stands for. Lives as long as its handle is open or a call is inside.
class object {
  public:
    object() = default;
    object(const object&) = delete;
    object& operator=(const object&) = delete;
    virtual ~object() = default;

    // Waits until the object is signalled, at most `milliseconds`, and has the effect that a wait has on it. False when
    // the time passed. Any thread, several at once.
    virtual bool wait(DWORD milliseconds) = 0;
};

// The open handles of the process.
handle_table<object>& handles();

// Makes `error` the last error and returns `value`, the failure value of the function that fails.
template <class Value>
Value fail(DWORD error, Value value) {
    SetLastError(error);
    return value;
}

} // namespace jorvet::platform::kernel
