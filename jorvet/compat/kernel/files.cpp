// Opening devices, requests to them, records of overlapped requests. A request completes on any thread; its record is
// written before its event is signalled, and not touched after that.
#include "jorvet/compat/kernel/files.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "jorvet/compat/kernel/nt_status.h"
#include "jorvet/system/cyusb_driver.h"

namespace jorvet::compat::kernel {

namespace {

// The error is written last, and read first, because the reader need not have waited for the event.
void write_record(OVERLAPPED* record, const usb::io_outcome& outcome) {
    record->InternalHigh = outcome.bytes;
    __atomic_store_n(&record->Internal, ULONG_PTR{status_of(outcome.error)}, __ATOMIC_RELEASE);
}

// Where a thread waits for the answer to its request.
class answer_slot {
  public:
    void put(const usb::io_outcome& outcome) {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            outcome_ = outcome;
        }
        filled_.notify_one();
    }
    usb::io_outcome take() {
        std::unique_lock<std::mutex> lock(mutex_);
        filled_.wait(lock, [this] { return outcome_.has_value(); });
        return *outcome_;
    }

  private:
    std::mutex mutex_;
    std::condition_variable filled_;
    std::optional<usb::io_outcome> outcome_;
};

// The files on which a thread has started requests. When the thread ends, those that are still pending are cancelled.
class thread_requests {
  public:
    thread_requests() = default;
    ~thread_requests() {
        for (const auto& weak : files_)
            if (const auto started_on = weak.lock())
                started_on->device().cancel_started_by(std::this_thread::get_id());
    }
    thread_requests(const thread_requests&) = delete;
    thread_requests& operator=(const thread_requests&) = delete;

    void add(const std::shared_ptr<file>& started_on) {
        const auto is_gone = [](const std::weak_ptr<file>& other) { return other.expired(); };
        const auto is_same = [&](const std::weak_ptr<file>& other) { return other.lock() == started_on; };
        files_.erase(std::remove_if(files_.begin(), files_.end(), is_gone), files_.end());
        if (std::none_of(files_.begin(), files_.end(), is_same))
            files_.push_back(started_on);
    }

  private:
    std::vector<std::weak_ptr<file>> files_;
};

thread_local thread_requests requests_of_this_thread;

void set_returned(LPDWORD returned, DWORD bytes) {
    if (returned != nullptr)
        *returned = bytes;
}

// Waits for the answer to its own request. (Windows waits for the file, so that the end of another request ends this
// wait, and the answer is written into a frame that has gone. That cannot be imitated safely.)
usb::io_outcome answer_to(usb::open_device& device, const usb::io_request& request) {
    const auto slot = std::make_shared<answer_slot>(); // shared: whoever fills it may still be notifying
    const auto outcome = device.start(request, [slot](const usb::io_outcome& late) { slot->put(late); });
    return outcome ? *outcome : slot->take();
}

BOOL do_request(usb::open_device& device, const usb::io_request& request, LPDWORD returned) {
    const usb::io_outcome outcome = answer_to(device, request);
    if (outcome.error != ERROR_SUCCESS)
        return fail(outcome.error, FALSE);
    set_returned(returned, outcome.bytes);
    return TRUE;
}

bool is_answered_late(DWORD code) {
    return faults::answer_delay() != 0 && code != cyusb::driver_request::buffered_transfer &&
           code != cyusb::driver_request::direct_transfer;
}

// The thread stays until the driver has answered: what it starts would be cancelled with it.
void answer_late(const std::shared_ptr<file>& file, const usb::io_request& request, const usb::io_done& done) {
    std::thread([file, request, done] {
        std::this_thread::sleep_for(std::chrono::milliseconds(faults::answer_delay()));
        done(answer_to(file->device(), request));
    }).detach();
}

BOOL start_request(const std::shared_ptr<file>& file, const usb::io_request& request, LPDWORD returned,
                   OVERLAPPED* record) {
    const std::shared_ptr<waitable> event = record->hEvent == nullptr ? file : find_waitable(record->hEvent);
    if (!event)
        return fail(ERROR_INVALID_HANDLE, FALSE);
    const usb::io_done done = [event, record](const usb::io_outcome& late) {
        write_record(record, late);
        event->set();
    };
    requests_of_this_thread.add(file);
    event->reset();
    write_record(record, {ERROR_IO_PENDING});
    std::optional<usb::io_outcome> outcome;
    if (is_answered_late(request.code))
        answer_late(file, request, done);
    else
        outcome = file->device().start(request, done);
    if (!outcome) { // record and buffers may belong to the caller again by now
        set_returned(returned, 0);
        return fail(ERROR_IO_PENDING, FALSE);
    }
    if (outcome->error != ERROR_SUCCESS && !outcome->started)
        return fail(outcome->error, FALSE); // the record of a refused request stays pending
    done(*outcome);
    const bool failed = outcome->error != ERROR_SUCCESS; // a request that was started reports that through its record
    set_returned(returned, failed ? 0 : outcome->bytes);
    return failed ? fail(ERROR_IO_PENDING, FALSE) : TRUE;
}

// Waits once for what the end of the request signals; an early signal ends the wait, too. False with the last error.
bool wait_for_end(HANDLE device, const OVERLAPPED* record) {
    const auto event = find_waitable(record->hEvent == nullptr ? device : record->hEvent);
    if (!event)
        return fail(ERROR_INVALID_HANDLE, false);
    event->wait(INFINITE);
    return true;
}

HANDLE open_file(const std::string& path) {
    DWORD error = ERROR_SUCCESS;
    auto device = usb::open_path(path, &error);
    return device ? handles().add(std::make_shared<file>(std::move(device))) : fail(error, INVALID_HANDLE_VALUE);
}

} // namespace

} // namespace jorvet::compat::kernel

using namespace jorvet::compat;
using kernel::fail;
using kernel::guarded;

HANDLE CreateFileA(LPCSTR path, DWORD access, DWORD, SECURITY_ATTRIBUTES* attributes, DWORD disposition, DWORD flags,
                   HANDLE template_file) {
    return guarded(__func__, INVALID_HANDLE_VALUE, [&]() -> HANDLE {
        if (path == nullptr || (access & ~(GENERIC_READ | GENERIC_WRITE)) != 0 || disposition != OPEN_EXISTING ||
            flags != FILE_FLAG_OVERLAPPED || attributes != nullptr || template_file != nullptr)
            return fail(ERROR_INVALID_PARAMETER, INVALID_HANDLE_VALUE);
        return kernel::open_file(path);
    });
}

BOOL DeviceIoControl(HANDLE device, DWORD code, LPVOID in, DWORD in_size, LPVOID out, DWORD out_size, LPDWORD returned,
                     OVERLAPPED* record) {
    return guarded(__func__, FALSE, [&] {
        const auto file = kernel::find_file(device);
        if (!file)
            return fail(ERROR_INVALID_HANDLE, FALSE);
        const usb::io_request request{code, static_cast<std::uint8_t*>(in), in_size, static_cast<std::uint8_t*>(out),
                                      out_size};
        return record == nullptr ? kernel::do_request(file->device(), request, returned)
                                 : kernel::start_request(file, request, returned, record);
    });
}

BOOL GetOverlappedResult(HANDLE device, OVERLAPPED* record, LPDWORD transferred, BOOL wait) {
    return guarded(__func__, FALSE, [&] {
        if (record == nullptr || transferred == nullptr)
            return fail(ERROR_INVALID_PARAMETER, FALSE);
        if (!HasOverlappedIoCompleted(record)) {
            if (!wait)
                return fail(ERROR_IO_INCOMPLETE, FALSE);
            if (!kernel::wait_for_end(device, record))
                return FALSE;
        }
        const auto status = static_cast<DWORD>(__atomic_load_n(&record->Internal, __ATOMIC_ACQUIRE));
        *transferred = static_cast<DWORD>(record->InternalHigh);
        return kernel::is_success(status) ? TRUE : fail(kernel::error_of(status), FALSE);
    });
}
