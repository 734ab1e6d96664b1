// Kernel objects and their handles: what the functions of win32.h share. Each kind of object has a file of its own
// beside this one; handles, waits and closing are the same for all.
#pragma once

#include <new>

#include "jorvet/compat/faults.h"
#include "jorvet/compat/handle_table.h"
#include "jorvet/system/win32.h"

namespace jorvet::compat::kernel {

// An object with a handle. Lives as long as its handle is open or a call uses it.
class object {
  public:
    object() = default;
    object(const object&) = delete;
    object& operator=(const object&) = delete;
    virtual ~object() = default;

    // Called once, after the handle was closed; calls may still be in progress.
    virtual void closed() {}
};

// An object that can be waited for. Any thread.
class waitable : public object {
  public:
    // Waits until the object is signalled, at most `milliseconds`, and then applies the effect of a wait to it. False
    // when the time passed. Several threads may wait at once.
    virtual bool wait(DWORD milliseconds) = 0;
    virtual void set() = 0;   // signals it
    virtual void reset() = 0; // removes the signal
};

// An event object that no handle stands for yet.
std::shared_ptr<waitable> make_event(bool manual_reset, bool signalled);

// The open handles of the process.
handle_table<object>& handles();

// The object of an open handle if it is one that can be waited for, else null.
inline std::shared_ptr<waitable> find_waitable(HANDLE handle) {
    return std::dynamic_pointer_cast<waitable>(handles().find(handle));
}

// Makes `error` the last error and returns `value`, the failure value of the function that fails.
template <class Value>
Value fail(DWORD error, Value value) {
    SetLastError(error);
    return value;
}

// The body of each function behind the faces: runs `work` and returns its result. Fails with `failure` instead when a
// fault is due for `function`, and with ERROR_NOT_ENOUGH_MEMORY when `work` runs out of memory.
template <class Value, class Work>
Value guarded(const char* function, Value failure, Work work) {
    if (const auto fault = faults::due(function))
        return fail(*fault, failure);
    try {
        return work();
    } catch (const std::bad_alloc&) {
        return fail(ERROR_NOT_ENOUGH_MEMORY, failure);
    }
}

} // namespace jorvet::compat::kernel
