// The face of the FTDI D2XX driver library: the part of it that this system uses, declared in our own words. On Windows
// libjorvet forwards the functions to FTD2XX.dll by ordinal (d2xx_functions.h); without that DLL each returns
// FT_DEVICE_NOT_FOUND, as if no bridge were attached. Elsewhere libjorvet-platform implements them over the bridges
// that are plugged in through ports/.
//
// Every function returns FT_OK on success. Any thread may call any function, also several threads on one handle at
// once. A function called with a handle that is not open returns FT_INVALID_HANDLE. After the bridge is unplugged every
// function but FT_Close returns FT_IO_ERROR; so does a transfer that fails while the bridge is still attached. A null
// pointer or an argument outside the documented values returns FT_INVALID_PARAMETER. Out-values are written only with
// FT_OK, unless stated otherwise. Only FT_Read and FT_Write block.
#pragma once

#include "jorvet/base/export.h"
#include "jorvet/system/win32.h"

using FT_HANDLE = void*;
using FT_STATUS = ULONG;

enum : FT_STATUS {
    FT_OK,
    FT_INVALID_HANDLE,
    FT_DEVICE_NOT_FOUND,
    FT_DEVICE_NOT_OPENED,
    FT_IO_ERROR,
    FT_INSUFFICIENT_RESOURCES,
    FT_INVALID_PARAMETER,
    FT_INVALID_BAUD_RATE,
    FT_DEVICE_NOT_OPENED_FOR_ERASE,
    FT_DEVICE_NOT_OPENED_FOR_WRITE,
    FT_FAILED_TO_WRITE_DEVICE,
    FT_EEPROM_READ_FAILED,
    FT_EEPROM_WRITE_FAILED,
    FT_EEPROM_ERASE_FAILED,
    FT_EEPROM_NOT_PRESENT,
    FT_EEPROM_NOT_PROGRAMMED,
    FT_INVALID_ARGS,
    FT_NOT_SUPPORTED,
    FT_OTHER_ERROR,
    FT_DEVICE_LIST_NOT_READY
};

constexpr ULONG FT_PURGE_RX = 1;
constexpr ULONG FT_PURGE_TX = 2;
constexpr DWORD FT_EVENT_RXCHAR = 1;
constexpr ULONG FT_FLAGS_OPENED = 1;

// One bridge of the device list.
struct FT_DEVICE_LIST_INFO_NODE {
    ULONG Flags;           // bit 0: some program has it open
    ULONG Type;            // kind of chip
    ULONG ID;              // USB vendor (high half) and product ID
    DWORD LocId;           // place on the bus
    char SerialNumber[16]; // zero-terminated
    char Description[64];  // zero-terminated
    FT_HANDLE ftHandle;    // the handle, where this process has it open
};

extern "C" {

// Opens the bridge at position `device` of the bridges attached now, 0 first, for this process alone.
// FT_DEVICE_NOT_FOUND: no such position. FT_DEVICE_NOT_OPENED: in use, or the bridge refuses;
// with the cause as the last error, as of CreateFileA, where it is not a handle of this process.
// FT_INSUFFICIENT_RESOURCES: no memory. On success `*handle` stays valid until FT_Close, also when the bridge goes
// away.
JV_FACE_API FT_STATUS WINAPI FT_Open(int device, FT_HANDLE* handle) JV_STAND_IN(FT_Open);

// Releases the handle and frees the bridge for the next opener; a call that blocks on it ends with
// FT_INVALID_HANDLE. FT_OK also when the bridge is gone.
JV_FACE_API FT_STATUS WINAPI FT_Close(FT_HANDLE handle) JV_STAND_IN(FT_Close);

// Takes `count` received bytes, waiting for them for at most the read time-out (0: without limit).
// FT_OK with `*read` below `count` when the time-out passed; FT_IO_ERROR, with `buffer` undefined, when the bridge went
// away meanwhile. `buffer` holds `count` bytes.
JV_FACE_API FT_STATUS WINAPI FT_Read(FT_HANDLE handle, LPVOID buffer, DWORD count, LPDWORD read) JV_STAND_IN(FT_Read);

// Sends `count` bytes, for at most the write time-out (0: without limit). FT_OK with `*written` below
// `count` when the bridge did not take them all in time.
JV_FACE_API FT_STATUS WINAPI FT_Write(FT_HANDLE handle, LPVOID buffer, DWORD count, LPDWORD written)
    JV_STAND_IN(FT_Write);

// Resets the bridge; its settings stay.
JV_FACE_API FT_STATUS WINAPI FT_ResetDevice(FT_HANDLE handle) JV_STAND_IN(FT_ResetDevice);

// Baud rate, 300 to 3,000,000; FT_INVALID_BAUD_RATE outside.
JV_FACE_API FT_STATUS WINAPI FT_SetBaudRate(FT_HANDLE handle, ULONG baud_rate) JV_STAND_IN(FT_SetBaudRate);

// `word_length` 7 or 8 bits; `stop_bits` 0 for one, 2 for two; `parity` 0 none to 4.
JV_FACE_API FT_STATUS WINAPI FT_SetDataCharacteristics(FT_HANDLE handle, UCHAR word_length, UCHAR stop_bits,
                                                       UCHAR parity) JV_STAND_IN(FT_SetDataCharacteristics);

// `flow_control` 0 none, 0x100 RTS/CTS, 0x200 DTR/DSR, 0x400 XON/XOFF with the two characters.
JV_FACE_API FT_STATUS WINAPI FT_SetFlowControl(FT_HANDLE handle, USHORT flow_control, UCHAR xon, UCHAR xoff)
    JV_STAND_IN(FT_SetFlowControl);

// Discards: `mask` FT_PURGE_RX what was received and not yet read, FT_PURGE_TX what waits to be sent.
JV_FACE_API FT_STATUS WINAPI FT_Purge(FT_HANDLE handle, ULONG mask) JV_STAND_IN(FT_Purge);

// Time-outs of FT_Read and FT_Write in milliseconds, 0 for no limit; both 0 at opening.
JV_FACE_API FT_STATUS WINAPI FT_SetTimeouts(FT_HANDLE handle, ULONG read_timeout, ULONG write_timeout)
    JV_STAND_IN(FT_SetTimeouts);

// The number of bytes received and not yet read.
JV_FACE_API FT_STATUS WINAPI FT_GetQueueStatus(FT_HANDLE handle, LPDWORD count) JV_STAND_IN(FT_GetQueueStatus);

// From now on `event`, an event handle that the caller keeps, is signalled at each arrival of bytes
// (`mask` FT_EVENT_RXCHAR), and when the bridge goes away. `mask` 0 ends it.
JV_FACE_API FT_STATUS WINAPI FT_SetEventNotification(FT_HANDLE handle, DWORD mask, LPVOID event)
    JV_STAND_IN(FT_SetEventNotification);

// Bytes received and not yet read, bytes waiting to be sent, and events (always FT_EVENT_RXCHAR or 0).
JV_FACE_API FT_STATUS WINAPI FT_GetStatus(FT_HANDLE handle, LPDWORD received, LPDWORD to_send, LPDWORD events)
    JV_STAND_IN(FT_GetStatus);

// Latency timer, 2 to 255 ms: how long the bridge holds a packet that is not full.
JV_FACE_API FT_STATUS WINAPI FT_SetLatencyTimer(FT_HANDLE handle, UCHAR milliseconds) JV_STAND_IN(FT_SetLatencyTimer);

// Sizes of the USB transfers in bytes, multiples of 64 from 64 to 65,536.
JV_FACE_API FT_STATUS WINAPI FT_SetUSBParameters(FT_HANDLE handle, ULONG in_transfer_size, ULONG out_transfer_size)
    JV_STAND_IN(FT_SetUSBParameters);

// How often the driver retries to reset a failed pipe.
JV_FACE_API FT_STATUS WINAPI FT_SetResetPipeRetryCount(FT_HANDLE handle, DWORD count)
    JV_STAND_IN(FT_SetResetPipeRetryCount);

// Takes a snapshot of the attached bridges, for the whole process, and returns their number. It stays unchanged until
// the next call: callers on several threads need a lock around this call and the next function.
JV_FACE_API FT_STATUS WINAPI FT_CreateDeviceInfoList(LPDWORD count) JV_STAND_IN(FT_CreateDeviceInfoList);

// Writes the nodes of the latest snapshot to `nodes`, which has room for all of them, and their number to `*count`.
// FT_DEVICE_LIST_NOT_READY before the first snapshot.
JV_FACE_API FT_STATUS WINAPI FT_GetDeviceInfoList(FT_DEVICE_LIST_INFO_NODE* nodes, LPDWORD count)
    JV_STAND_IN(FT_GetDeviceInfoList);

} // extern "C"
