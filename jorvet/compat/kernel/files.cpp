// Opening devices, requests to them, records of overlapped requests. A request completes on any thread; its record is
// written before its event is signalled, and not touched after that.
#include "jorvet/compat/kernel/files.h"

#include <condition_variable>
#include <mutex>

namespace jorvet::compat::kernel {

namespace {

// The first two members of a record: the request's error, ERROR_IO_PENDING until it has one, and the number of bytes.
// The error is written last, and read first, because the reader need not have waited for the event.
void write_record(OVERLAPPED* record, const usb::io_outcome& outcome) {
    record->InternalHigh = outcome.bytes;
    __atomic_store_n(&record->Internal, ULONG_PTR{outcome.error}, __ATOMIC_RELEASE);
}

DWORD error_in(const OVERLAPPED* record) {
    return static_cast<DWORD>(__atomic_load_n(&record->Internal, __ATOMIC_ACQUIRE));
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

void set_returned(LPDWORD returned, DWORD bytes) {
    if (returned != nullptr)
        *returned = bytes;
}

BOOL do_request(usb::open_device& device, const usb::io_request& request, LPDWORD returned) {
    const auto slot = std::make_shared<answer_slot>(); // shared: whoever fills it may still be notifying
    auto outcome = device.start(request, [slot](const usb::io_outcome& late) { slot->put(late); });
    if (!outcome)
        outcome = slot->take();
    if (outcome->error != ERROR_SUCCESS)
        return fail(outcome->error, FALSE);
    set_returned(returned, outcome->bytes);
    return TRUE;
}

BOOL start_request(usb::open_device& device, const usb::io_request& request, LPDWORD returned, OVERLAPPED* record) {
    const auto event = find_waitable(record->hEvent);
    if (!event)
        return fail(ERROR_INVALID_HANDLE, FALSE);
    const usb::io_done done = [event, record](const usb::io_outcome& late) {
        write_record(record, late);
        event->set();
    };
    event->reset();
    write_record(record, {ERROR_IO_PENDING});
    const auto outcome = device.start(request, done);
    if (!outcome) // record and buffers may belong to the caller again by now
        return fail(ERROR_IO_PENDING, FALSE);
    write_record(record, *outcome);
    if (outcome->error != ERROR_SUCCESS && !outcome->started)
        return fail(outcome->error, FALSE);
    event->set();
    if (outcome->error != ERROR_SUCCESS) // a request that was started reports its failure through the record
        return fail(ERROR_IO_PENDING, FALSE);
    set_returned(returned, outcome->bytes);
    return TRUE;
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
        if (path == nullptr || access != (GENERIC_READ | GENERIC_WRITE) || disposition != OPEN_EXISTING ||
            flags != FILE_FLAG_OVERLAPPED || attributes != nullptr || template_file != nullptr)
            return fail(ERROR_INVALID_PARAMETER, INVALID_HANDLE_VALUE);
        return kernel::open_file(path);
    });
}

BOOL DeviceIoControl(HANDLE device, DWORD code, LPVOID in, DWORD in_size, LPVOID out, DWORD out_size, LPDWORD returned,
                     OVERLAPPED* record) {
    kernel::set_returned(returned, 0);
    return guarded(__func__, FALSE, [&] {
        const auto file = kernel::find_file(device);
        if (!file)
            return fail(ERROR_INVALID_HANDLE, FALSE);
        const usb::io_request request{code, static_cast<std::uint8_t*>(in), in_size, static_cast<std::uint8_t*>(out),
                                      out_size};
        return record == nullptr ? kernel::do_request(file->device(), request, returned)
                                 : kernel::start_request(file->device(), request, returned, record);
    });
}

BOOL GetOverlappedResult(HANDLE device, OVERLAPPED* record, LPDWORD transferred, BOOL wait) {
    return guarded(__func__, FALSE, [&] {
        if (!kernel::find_file(device))
            return fail(ERROR_INVALID_HANDLE, FALSE);
        if (record == nullptr || transferred == nullptr)
            return fail(ERROR_INVALID_PARAMETER, FALSE);
        while (kernel::error_in(record) == ERROR_IO_PENDING) {
            if (!wait)
                return fail(ERROR_IO_INCOMPLETE, FALSE);
            const auto event = kernel::find_waitable(record->hEvent);
            if (!event)
                return fail(ERROR_INVALID_HANDLE, FALSE);
            event->wait(INFINITE);
        }
        *transferred = static_cast<DWORD>(record->InternalHigh);
        const DWORD error = kernel::error_in(record);
        return error == ERROR_SUCCESS ? TRUE : fail(error, FALSE);
    });
}
