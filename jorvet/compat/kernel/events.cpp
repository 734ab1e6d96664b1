// Event objects. Any thread; waiters are released by the thread that signals.
#include <chrono>
#include <condition_variable>
#include <mutex>

#include "jorvet/compat/kernel/objects.h"

namespace jorvet::compat::kernel {

namespace {

class event final : public waitable {
  public:
    event(bool manual_reset, bool signalled) : manual_reset_(manual_reset), signalled_(signalled) {}

    bool wait(DWORD milliseconds) override;
    void set() override;
    void reset() override;

  private:
    const bool manual_reset_;
    std::mutex mutex_; // guards the members below
    std::condition_variable released_;
    bool signalled_;
    // A signal counts for those who wait at that moment: two signals release two waiters, also when neither has run
    // yet.
    unsigned waiting_ = 0;
    unsigned granted_ = 0; // how many of those waiting may go
};

bool event::wait(DWORD milliseconds) {
    std::unique_lock<std::mutex> lock(mutex_);
    if (signalled_) {
        signalled_ = manual_reset_;
        return true;
    }
    if (milliseconds == 0)
        return false;
    const auto may_go = [this] { return granted_ != 0; };
    ++waiting_;
    if (milliseconds == INFINITE)
        released_.wait(lock, may_go);
    else
        released_.wait_for(lock, std::chrono::milliseconds(milliseconds), may_go);
    --waiting_;
    if (granted_ == 0)
        return false;
    --granted_;
    return true;
}

void event::set() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (manual_reset_) {
            signalled_ = true;
            granted_ = waiting_;
        } else if (granted_ < waiting_) {
            ++granted_;
        } else {
            signalled_ = true;
        }
    }
    if (manual_reset_)
        released_.notify_all();
    else
        released_.notify_one();
}

void event::reset() {
    const std::lock_guard<std::mutex> lock(mutex_);
    signalled_ = false;
}

} // namespace

std::shared_ptr<waitable> make_event(bool manual_reset, bool signalled) {
    return std::make_shared<event>(manual_reset, signalled);
}

} // namespace jorvet::compat::kernel

using namespace jorvet::compat;
using kernel::fail;
using kernel::guarded;

HANDLE CreateEventA(SECURITY_ATTRIBUTES* attributes, BOOL manual_reset, BOOL initial_state, LPCSTR name) {
    return guarded(__func__, HANDLE{}, [&] {
        if (attributes != nullptr || (name != nullptr && *name != '\0'))
            return fail(ERROR_INVALID_PARAMETER, HANDLE{});
        const HANDLE handle = kernel::handles().add(kernel::make_event(manual_reset != FALSE, initial_state != FALSE));
        SetLastError(ERROR_SUCCESS);
        return handle;
    });
}

BOOL SetEvent(HANDLE event) {
    return guarded(__func__, FALSE, [&] {
        const auto target = kernel::find_waitable(event);
        if (!target)
            return fail(ERROR_INVALID_HANDLE, FALSE);
        target->set();
        return TRUE;
    });
}

BOOL ResetEvent(HANDLE event) {
    return guarded(__func__, FALSE, [&] {
        const auto target = kernel::find_waitable(event);
        if (!target)
            return fail(ERROR_INVALID_HANDLE, FALSE);
        target->reset();
        return TRUE;
    });
}
