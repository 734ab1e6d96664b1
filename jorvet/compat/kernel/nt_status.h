// The system's own status of a request, as OVERLAPPED::Internal holds it, and the errors that programs see. No state.
#pragma once

#include "jorvet/system/win32.h"

namespace jorvet::compat::kernel {

struct status_and_error {
    DWORD status;
    DWORD error;
};

inline constexpr status_and_error nt_statuses[] = {
    {0x00000000, ERROR_SUCCESS},
    {STATUS_PENDING, ERROR_IO_PENDING},
    {0xC0000008, ERROR_INVALID_HANDLE},
    {0xC000000D, ERROR_INVALID_PARAMETER},
    {0xC0000010, ERROR_INVALID_FUNCTION},
    {0xC0000017, ERROR_NOT_ENOUGH_MEMORY},
    {0xC0000023, ERROR_INSUFFICIENT_BUFFER},
    {0xC000009D, ERROR_DEVICE_NOT_CONNECTED},
    {0xC0000120, ERROR_OPERATION_ABORTED},
};
inline constexpr DWORD unsuccessful = 0xC0000001; // ERROR_GEN_FAILURE

// Success and information, STATUS_PENDING among them.
constexpr bool is_success(DWORD status) {
    return (status & 0x80000000) == 0;
}

constexpr DWORD status_of(DWORD error) {
    for (const auto& entry : nt_statuses)
        if (entry.error == error)
            return entry.status;
    return unsuccessful;
}

constexpr DWORD error_of(DWORD status) {
    for (const auto& entry : nt_statuses)
        if (entry.status == status)
            return entry.error;
    return ERROR_GEN_FAILURE;
}

} // namespace jorvet::compat::kernel
