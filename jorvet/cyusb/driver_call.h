// The only way to the driver: every request of the layer goes through call_driver, and make_block makes every transfer
// request block. Internal to cyusb/. No state; any thread.
#pragma once

#include <cstring>
#include <memory>
#include <new>

#include "jorvet/cyusb/pending_record.h"
#include "jorvet/system/cyusb_driver.h"
#include "jorvet/system/win32.h"

namespace jorvet::cyusb {

struct driver_buffer {
    void* data = nullptr;
    DWORD size = 0;
};

struct driver_answer {
    bool ok;
    DWORD error; // 0: completed; ERROR_IO_PENDING: `record` says when
    DWORD bytes; // returned by the driver; 0 unless ok
};

// Starts one request; does not block. Leaves the thread's last error at 0 when the request has completed, whatever it
// was before.
inline driver_answer start_request(HANDLE device, DWORD code, driver_buffer in, driver_buffer out, OVERLAPPED* record) {
    DWORD bytes = 0;
    SetLastError(ERROR_SUCCESS);
    const bool ok = DeviceIoControl(device, code, in.data, in.size, out.data, out.size, &bytes, record) != FALSE;
    return {ok, GetLastError(), ok ? bytes : 0};
}

// Blocks until the request of `record` has ended. Polls when its event cannot be waited for.
inline void await_end(OVERLAPPED* record) {
    constexpr DWORD poll_ms = 1;
    while (!HasOverlappedIoCompleted(record))
        if (record->hEvent == nullptr || WaitForSingleObject(record->hEvent, INFINITE) != WAIT_OBJECT_0)
            Sleep(poll_ms);
}

// Sends one request and waits for its end. The request has a record of its own, because the handle was opened for
// overlapped requests: without a record the system would wait for the handle, which the end of any other request
// signals. If no event can be created, the record goes without one and is polled.
inline driver_answer call_driver(HANDLE device, DWORD code, driver_buffer in, driver_buffer out) {
    pending_record pending;
    driver_answer answer = start_request(device, code, in, out, pending.get());
    if (answer.error != ERROR_IO_PENDING)
        return answer;
    await_end(pending.get());
    DWORD bytes = 0;
    SetLastError(ERROR_SUCCESS);
    answer.ok = GetOverlappedResult(device, pending.get(), &bytes, FALSE) != FALSE;
    answer.error = GetLastError();
    answer.bytes = answer.ok ? bytes : 0;
    return answer;
}

// A transfer request block on the heap: header, then perhaps packet table, then perhaps data.
struct transfer_block {
    std::unique_ptr<BYTE[]> bytes;
    DWORD size = 0;

    XferRequest* header() const { return header_of(bytes.get()); }
    BYTE* data() const { return bytes.get() + header()->DataOffset; }
    driver_buffer buffer() const { return {bytes.get(), size}; }

    static XferRequest* header_of(BYTE* block) { return reinterpret_cast<XferRequest*>(block); }
};

// A zeroed block with offsets and lengths filled in. Buffered, it has room for `length` bytes of data, copied from
// `data` unless that is null; otherwise no data part. The sum of the parts is below 4 GiB.
inline transfer_block make_block(std::size_t table_length, bool buffered, const BYTE* data, std::size_t length) {
    const std::size_t data_offset = sizeof(XferRequest) + table_length;
    transfer_block block;
    block.size = static_cast<DWORD>(data_offset + (buffered ? length : 0));
    block.bytes.reset(new BYTE[block.size]());
    auto* header = new (block.bytes.get()) XferRequest{};
    if (table_length > 0) {
        header->PacketTableOffset = sizeof(XferRequest);
        header->PacketTableLength = static_cast<std::uint32_t>(table_length);
    }
    if (buffered) {
        header->DataOffset = static_cast<std::uint32_t>(data_offset);
        header->DataLength = static_cast<std::uint32_t>(length);
        if (data != nullptr && length > 0)
            std::memcpy(block.bytes.get() + data_offset, data, length);
    }
    return block;
}

} // namespace jorvet::cyusb
