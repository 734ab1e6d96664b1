// What the library asks of the operating system. On Windows this header includes the system's own; elsewhere it
// declares the same names and signatures, which libjorvet-platform implements (compat/kernel/, compat/setup/).
//
// Any thread may call any function. None throws. "Last error" is a number per thread that a failing call sets;
// succeeding calls leave it unchanged unless stated otherwise.
#pragma once

#if defined(_WIN32)

#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>

#include <setupapi.h>

#include <dbt.h>

#else

#include <cstdint>

#include "jorvet/base/export.h"

using BOOL = int;
using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using ULONG = std::uint32_t;
using UCHAR = std::uint8_t;
using USHORT = std::uint16_t;
using HANDLE = void*;
using LPVOID = void*;
using LPCSTR = const char*;
using LPDWORD = DWORD*;

#define TRUE 1
#define FALSE 0
#define WINAPI

inline const HANDLE INVALID_HANDLE_VALUE = reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(-1));

constexpr DWORD INFINITE = 0xFFFFFFFF;
constexpr DWORD WAIT_OBJECT_0 = 0;
constexpr DWORD WAIT_TIMEOUT = 258;
constexpr DWORD WAIT_FAILED = 0xFFFFFFFF;

constexpr DWORD ERROR_SUCCESS = 0;
constexpr DWORD ERROR_INVALID_HANDLE = 6;
constexpr DWORD ERROR_NOT_ENOUGH_MEMORY = 8;
constexpr DWORD ERROR_NOT_SUPPORTED = 50;
constexpr DWORD ERROR_INVALID_PARAMETER = 87;

constexpr int THREAD_PRIORITY_NORMAL = 0;
constexpr int THREAD_PRIORITY_HIGHEST = 2;

struct SECURITY_ATTRIBUTES;

extern "C" {

// The calling thread's last error; 0 in a new thread. Never fails, never blocks.
JV_PLATFORM_API DWORD GetLastError() JV_STAND_IN(GetLastError);
// Sets the calling thread's last error.
JV_PLATFORM_API void SetLastError(DWORD error) JV_STAND_IN(SetLastError);

// Makes an event object: auto-reset when `manual_reset` is FALSE (one wait takes the signal), signalled at once when
// `initial_state` is TRUE. `attributes` and `name` must be null: events here belong to one process and have no names.
// Returns a handle that CloseHandle releases, or null with the last error ERROR_NOT_ENOUGH_MEMORY (no memory) or
// ERROR_INVALID_PARAMETER (attributes, or a name other than the empty text). The last error becomes 0 on success.
JV_PLATFORM_API HANDLE CreateEventA(SECURITY_ATTRIBUTES* attributes, BOOL manual_reset, BOOL initial_state, LPCSTR name)
    JV_STAND_IN(CreateEventA);

// Signals an event: one waiter of an auto-reset event, present or next to come, is released. Signalling twice before a
// wait counts once. FALSE with ERROR_INVALID_HANDLE when `event` is no open event. Never blocks.
JV_PLATFORM_API BOOL SetEvent(HANDLE event) JV_STAND_IN(SetEvent);

// Resets an event. FALSE with ERROR_INVALID_HANDLE as above.
JV_PLATFORM_API BOOL ResetEvent(HANDLE event) JV_STAND_IN(ResetEvent);

// Waits until `object` is signalled, at most `milliseconds` (0 only tests, INFINITE waits without limit), on the
// monotonic clock; never returns early. WAIT_OBJECT_0: signalled, and an auto-reset event is reset. WAIT_TIMEOUT: not
// in time. WAIT_FAILED with ERROR_INVALID_HANDLE: no open event. Closing the handle meanwhile does not end the wait.
JV_PLATFORM_API DWORD WaitForSingleObject(HANDLE object, DWORD milliseconds) JV_STAND_IN(WaitForSingleObject);

// Releases a handle. FALSE with ERROR_INVALID_HANDLE when it is not open (a second close included).
JV_PLATFORM_API BOOL CloseHandle(HANDLE object) JV_STAND_IN(CloseHandle);

// The number of open handles of the process, which must be GetCurrentProcess(): FALSE with ERROR_INVALID_HANDLE for
// any other.
JV_PLATFORM_API BOOL GetProcessHandleCount(HANDLE process, DWORD* count) JV_STAND_IN(GetProcessHandleCount);

// A handle that means the calling process; it needs no closing.
JV_PLATFORM_API HANDLE GetCurrentProcess() JV_STAND_IN(GetCurrentProcess);

// A handle that means the calling thread, on whichever thread it is used; it needs no closing.
JV_PLATFORM_API HANDLE GetCurrentThread() JV_STAND_IN(GetCurrentThread);

// Sets the priority of the calling thread (`thread` must be GetCurrentThread()), -15 to 15, 0 normal, as far as the
// system permits: where it does not, the call still succeeds and the priority stays. FALSE with ERROR_INVALID_HANDLE
// for another handle, ERROR_INVALID_PARAMETER for another priority.
JV_PLATFORM_API BOOL SetThreadPriority(HANDLE thread, int priority) JV_STAND_IN(SetThreadPriority);

} // extern "C"

// ---- Files, devices and notifications ----------------------------------------------------------------------------

using CHAR = char;
using LONG = std::int32_t;
using WCHAR = char16_t; // UTF-16, 16 bits on every system
using ULONG_PTR = std::uintptr_t;
using HDEVINFO = void*;
using HDEVNOTIFY = void*;
using HWND = struct HWND__*;

struct GUID {
    DWORD Data1;
    WORD Data2;
    WORD Data3;
    BYTE Data4[8];
};

// The state of a request that may complete later. The caller zeroes it and may set `hEvent`; from the start of the
// request to its completion record and event belong to the system and must stay where they are.
struct OVERLAPPED {
    ULONG_PTR Internal;     // NTSTATUS of the request: STATUS_PENDING from its start to its completion
    ULONG_PTR InternalHigh; // bytes moved
    DWORD Offset;
    DWORD OffsetHigh;
    HANDLE hEvent;
};

// One member of a device interface class, and the device that it belongs to. `cbSize` is the size of the record.
struct SP_DEVICE_INTERFACE_DATA {
    DWORD cbSize;
    GUID InterfaceClassGuid;
    DWORD Flags;
    ULONG_PTR Reserved;
};
struct SP_DEVINFO_DATA {
    DWORD cbSize;
    GUID ClassGuid;
    DWORD DevInst;
    ULONG_PTR Reserved;
};

// The path of a device interface; it extends beyond the record. `cbSize` is the size of the record alone.
struct SP_DEVICE_INTERFACE_DETAIL_DATA_A {
    DWORD cbSize;
    CHAR DevicePath[1];
};

// Which device events a window asks for: the common header, a device class, an open handle.
struct DEV_BROADCAST_HDR {
    DWORD dbch_size;
    DWORD dbch_devicetype;
    DWORD dbch_reserved;
};
struct DEV_BROADCAST_DEVICEINTERFACE_A {
    DWORD dbcc_size;
    DWORD dbcc_devicetype;
    DWORD dbcc_reserved;
    GUID dbcc_classguid;
    CHAR dbcc_name[1];
};
struct DEV_BROADCAST_HANDLE {
    DWORD dbch_size;
    DWORD dbch_devicetype;
    DWORD dbch_reserved;
    HANDLE dbch_handle;
    HDEVNOTIFY dbch_hdevnotify;
    GUID dbch_eventguid;
    LONG dbch_nameoffset;
    BYTE dbch_data[1];
};

constexpr DWORD ERROR_INVALID_FUNCTION = 1;
constexpr DWORD ERROR_FILE_NOT_FOUND = 2;
constexpr DWORD ERROR_ACCESS_DENIED = 5;
constexpr DWORD ERROR_GEN_FAILURE = 31;
constexpr DWORD ERROR_SHARING_VIOLATION = 32;
constexpr DWORD ERROR_INSUFFICIENT_BUFFER = 122;
constexpr DWORD ERROR_NO_MORE_ITEMS = 259;
constexpr DWORD ERROR_OPERATION_ABORTED = 995;
constexpr DWORD ERROR_IO_INCOMPLETE = 996;
constexpr DWORD ERROR_IO_PENDING = 997;
constexpr DWORD ERROR_DEVICE_NOT_CONNECTED = 1167;
constexpr DWORD ERROR_INVALID_USER_BUFFER = 1784;

constexpr DWORD STATUS_PENDING = 0x103; // of OVERLAPPED::Internal

constexpr DWORD GENERIC_READ = 0x80000000;
constexpr DWORD GENERIC_WRITE = 0x40000000;
constexpr DWORD FILE_SHARE_READ = 1;
constexpr DWORD FILE_SHARE_WRITE = 2;
constexpr DWORD OPEN_EXISTING = 3;
constexpr DWORD FILE_FLAG_OVERLAPPED = 0x40000000;

constexpr DWORD DIGCF_PRESENT = 0x02;
constexpr DWORD DIGCF_DEVICEINTERFACE = 0x10;
constexpr DWORD DBT_DEVTYP_DEVICEINTERFACE = 5;
constexpr DWORD DBT_DEVTYP_HANDLE = 6;
constexpr DWORD DEVICE_NOTIFY_WINDOW_HANDLE = 0;

extern "C" {

// Opens the device behind a device interface path, whose letters are compared without case. `access` is of GENERIC_READ
// and GENERIC_WRITE, `disposition` OPEN_EXISTING, `flags` FILE_FLAG_OVERLAPPED; `attributes` and `template_file` are
// null. Returns a handle that CloseHandle releases (what is pending on it then ends as cancelled), or
// INVALID_HANDLE_VALUE with ERROR_FILE_NOT_FOUND (no such path, or the device is gone), ERROR_SHARING_VIOLATION (the
// device refuses, as one that another process uses does), ERROR_ACCESS_DENIED (not permitted) or
// ERROR_INVALID_PARAMETER.
JV_PLATFORM_API HANDLE CreateFileA(LPCSTR path, DWORD access, DWORD share, SECURITY_ATTRIBUTES* attributes,
                                   DWORD disposition, DWORD flags, HANDLE template_file) JV_STAND_IN(CreateFileA);

// Sends the request `code` to the driver of an open device, with `in_size` bytes from `in` and room for `out_size`
// bytes at `out`; the two may be the same memory, and either may be null with size 0.
// Without `record` it blocks until the driver has answered, or, on Windows, until any request on the handle has ended:
// do not use it so. TRUE with the number of bytes that came back in `*returned`; FALSE with the request's error.
// With `record` it does not block. TRUE: done already, `*returned` is valid and the record's event signalled. FALSE
// with ERROR_IO_PENDING: both buffers and the record belong to the driver until the request ends. Then the driver sets
// `Internal` and signals the record's event, if it has one, which was reset at the start; GetOverlappedResult returns
// the outcome. FALSE with another error: not started; the buffers are free, the event stays unsignalled, and the record
// stays pending for ever.
// A request that fails leaves `*returned` as it was and, when its code passes a copy of the buffer, `out` as well. A
// transfer that fails on the bus succeeds as a request: its block's status words say how it ended. What a thread has
// started is cancelled when the thread ends.
// Errors: ERROR_INVALID_HANDLE; ERROR_INVALID_FUNCTION (unknown code); ERROR_INVALID_PARAMETER or
// ERROR_INSUFFICIENT_BUFFER (buffers that do not fit the code); ERROR_OPERATION_ABORTED (cancelled);
// ERROR_DEVICE_NOT_CONNECTED (the device is gone: at once, also for what was pending); ERROR_GEN_FAILURE.
JV_PLATFORM_API BOOL DeviceIoControl(HANDLE device, DWORD code, LPVOID in, DWORD in_size, LPVOID out, DWORD out_size,
                                     LPDWORD returned, OVERLAPPED* record) JV_STAND_IN(DeviceIoControl);

// The outcome of the request started with `record`, whose number of bytes moved goes to `*transferred`, also when it
// failed. TRUE: it succeeded. FALSE with ERROR_IO_INCOMPLETE: still pending, `*transferred` stays unchanged. With
// `wait` TRUE it waits once for the record's event instead, without limit, and consumes the signal of an auto-reset
// event; a record without an event needs an open `device`. FALSE with another error: that of the request, as above.
JV_PLATFORM_API BOOL GetOverlappedResult(HANDLE device, OVERLAPPED* record, LPDWORD transferred, BOOL wait)
    JV_STAND_IN(GetOverlappedResult);

// Whether the request started with `record` has ended: what it did is visible to the caller then. Never blocks.
#define HasOverlappedIoCompleted(record) (__atomic_load_n(&(record)->Internal, __ATOMIC_ACQUIRE) != STATUS_PENDING)

// Blocks for at least `milliseconds`.
JV_PLATFORM_API void Sleep(DWORD milliseconds) JV_STAND_IN(Sleep);

// Takes a snapshot of the interfaces of class `class_guid` whose devices are present (`flags` must be DIGCF_PRESENT |
// DIGCF_DEVICEINTERFACE, `enumerator` and `parent` null). Returns a set that SetupDiDestroyDeviceInfoList releases and
// that later arrivals and removals do not change, or INVALID_HANDLE_VALUE with the last error.
JV_PLATFORM_API HDEVINFO SetupDiGetClassDevsA(const GUID* class_guid, LPCSTR enumerator, HWND parent, DWORD flags)
    JV_STAND_IN(SetupDiGetClassDevsA);

// Member number `index` (0 first) of the set, into `*data`, whose cbSize the caller has filled. `device` is null. FALSE
// with ERROR_NO_MORE_ITEMS past the end, with another error when this member cannot be read; `*data` is then undefined.
JV_PLATFORM_API BOOL SetupDiEnumDeviceInterfaces(HDEVINFO set, SP_DEVINFO_DATA* device, const GUID* class_guid,
                                                 DWORD index, SP_DEVICE_INTERFACE_DATA* data)
    JV_STAND_IN(SetupDiEnumDeviceInterfaces);

// The path of a member of the set. `*required` (if not null) becomes the bytes needed: those before DevicePath, the
// path and its terminating zero. With `detail` null or `size` below that: FALSE with ERROR_INSUFFICIENT_BUFFER.
// Otherwise the path is written, and `*device`, if not null, with it. The caller has filled their cbSize; a wrong one
// is ERROR_INVALID_USER_BUFFER.
JV_PLATFORM_API BOOL SetupDiGetDeviceInterfaceDetailA(HDEVINFO set, SP_DEVICE_INTERFACE_DATA* data,
                                                      SP_DEVICE_INTERFACE_DETAIL_DATA_A* detail, DWORD size,
                                                      LPDWORD required, SP_DEVINFO_DATA* device)
    JV_STAND_IN(SetupDiGetDeviceInterfaceDetailA);

// Releases a set. FALSE with ERROR_INVALID_HANDLE when it is none.
JV_PLATFORM_API BOOL SetupDiDestroyDeviceInfoList(HDEVINFO set) JV_STAND_IN(SetupDiDestroyDeviceInfoList);

// Registers a window for device events: `filter` is one of the DEV_BROADCAST_ records, copied by the call; `flags` is
// DEVICE_NOTIFY_WINDOW_HANDLE. Returns a registration that UnregisterDeviceNotification releases, or null with
// ERROR_INVALID_PARAMETER (no window, or an unknown record) or ERROR_INVALID_HANDLE (no open device).
JV_PLATFORM_API HDEVNOTIFY RegisterDeviceNotificationA(HANDLE window, LPVOID filter, DWORD flags)
    JV_STAND_IN(RegisterDeviceNotificationA);

// Ends a registration. FALSE with ERROR_INVALID_HANDLE when it is none (a second time included).
JV_PLATFORM_API BOOL UnregisterDeviceNotification(HDEVNOTIFY registration) JV_STAND_IN(UnregisterDeviceNotification);

} // extern "C"

#endif
