// The FTDI D2XX driver library as this system uses it: the other face of the platform. Eighteen functions, declared
// here in our own words. On Windows libjorvet forwards them to FTD2XX.dll, by ordinal (given with each); without that
// DLL each says FT_DEVICE_NOT_FOUND, as if no bridge were there. Elsewhere libjorvet-platform supplies them over the
// bridges attached through ports.h.
//
// Every function returns an FT_STATUS, FT_OK when it did its work. Any thread may call any function, several on one
// handle at once. Of a handle that is not open every function says FT_INVALID_HANDLE; of one whose bridge is gone
// (unplugged) every function but FT_Close says FT_IO_ERROR, and so does a transfer that fails with the bridge still
// there. Null pointers, and arguments outside what is named, give FT_INVALID_PARAMETER. Out-values are written only
// with FT_OK, unless said otherwise. Nothing here blocks but FT_Read and FT_Write.
#pragma once

#include "jorvet/platform/export.h"
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

// Ordinal 1. Opens the bridge at position `device` of the bridges attached now, 0 first, for this process alone.
// FT_DEVICE_NOT_FOUND: no such position. FT_DEVICE_NOT_OPENED: in use, or the bridge refuses.
// FT_INSUFFICIENT_RESOURCES: no memory. On success `*handle` stays valid until FT_Close, also when the bridge goes
// away.
JV_D2XX_API FT_STATUS WINAPI FT_Open(int device, FT_HANDLE* handle);

// Ordinal 2. Releases the handle and frees the bridge for the next opener; a call that blocks on it ends with
// FT_INVALID_HANDLE. FT_OK also when the bridge is gone.
JV_D2XX_API FT_STATUS WINAPI FT_Close(FT_HANDLE handle);

// Ordinal 3. Takes `count` received bytes, waiting for them as long as the read time-out says (0: without limit).
// FT_OK with `*read` below `count` when the time-out passed; FT_IO_ERROR, the bytes of no use, when the bridge went
// away meanwhile. `buffer` holds `count` bytes.
JV_D2XX_API FT_STATUS WINAPI FT_Read(FT_HANDLE handle, LPVOID buffer, DWORD count, LPDWORD read);

// Ordinal 4. Sends `count` bytes, for at most the write time-out (0: without limit). FT_OK with `*written` below
// `count` when the bridge did not take them all in time.
JV_D2XX_API FT_STATUS WINAPI FT_Write(FT_HANDLE handle, LPVOID buffer, DWORD count, LPDWORD written);

// Ordinal 6. Resets the bridge; its settings stay.
JV_D2XX_API FT_STATUS WINAPI FT_ResetDevice(FT_HANDLE handle);

// Ordinal 7. Baud rate, 300 to 3,000,000; FT_INVALID_BAUD_RATE outside.
JV_D2XX_API FT_STATUS WINAPI FT_SetBaudRate(FT_HANDLE handle, ULONG baud_rate);

// Ordinal 8. `word_length` 7 or 8 bits; `stop_bits` 0 for one, 2 for two; `parity` 0 none to 4.
JV_D2XX_API FT_STATUS WINAPI FT_SetDataCharacteristics(FT_HANDLE handle, UCHAR word_length, UCHAR stop_bits,
                                                       UCHAR parity);

// Ordinal 9. `flow_control` 0 none, 0x100 RTS/CTS, 0x200 DTR/DSR, 0x400 XON/XOFF with the two characters.
JV_D2XX_API FT_STATUS WINAPI FT_SetFlowControl(FT_HANDLE handle, USHORT flow_control, UCHAR xon, UCHAR xoff);

// Ordinal 16. Discards: `mask` FT_PURGE_RX what was received and not yet read, FT_PURGE_TX what waits to be sent.
JV_D2XX_API FT_STATUS WINAPI FT_Purge(FT_HANDLE handle, ULONG mask);

// Ordinal 17. Time-outs of FT_Read and FT_Write in milliseconds, 0 for no limit; both 0 at opening.
JV_D2XX_API FT_STATUS WINAPI FT_SetTimeouts(FT_HANDLE handle, ULONG read_timeout, ULONG write_timeout);

// Ordinal 18. The number of bytes received and not yet read.
JV_D2XX_API FT_STATUS WINAPI FT_GetQueueStatus(FT_HANDLE handle, LPDWORD count);

// Ordinal 19. From now on `event`, an event handle that the caller keeps, is signalled at each arrival of bytes
// (`mask` FT_EVENT_RXCHAR), and when the bridge goes away. `mask` 0 ends it.
JV_D2XX_API FT_STATUS WINAPI FT_SetEventNotification(FT_HANDLE handle, DWORD mask, LPVOID event);

// Ordinal 21. Bytes received and not yet read, bytes waiting to be sent, and events (always FT_EVENT_RXCHAR or 0).
JV_D2XX_API FT_STATUS WINAPI FT_GetStatus(FT_HANDLE handle, LPDWORD received, LPDWORD to_send, LPDWORD events);

// Ordinal 29. Latency timer, 2 to 255 ms: how long the bridge holds a packet that is not full.
JV_D2XX_API FT_STATUS WINAPI FT_SetLatencyTimer(FT_HANDLE handle, UCHAR milliseconds);

// Ordinal 33. Sizes of the USB transfers in bytes, multiples of 64 from 64 to 65,536.
JV_D2XX_API FT_STATUS WINAPI FT_SetUSBParameters(FT_HANDLE handle, ULONG in_transfer_size, ULONG out_transfer_size);

// Ordinal 65. How often the driver retries to reset a failed pipe.
JV_D2XX_API FT_STATUS WINAPI FT_SetResetPipeRetryCount(FT_HANDLE handle, DWORD count);

// Ordinal 70. Takes stock of the attached bridges, for the whole process, and gives their number. The stock stays as
// it is until the next call: a caller that must not be overtaken holds a lock across this call and the next one.
JV_D2XX_API FT_STATUS WINAPI FT_CreateDeviceInfoList(LPDWORD count);

// Ordinal 71. Writes the nodes of the stock taken last to `nodes`, which has room for all of them, and their number to
// `*count`. FT_DEVICE_LIST_NOT_READY before any stock was taken.
JV_D2XX_API FT_STATUS WINAPI FT_GetDeviceInfoList(FT_DEVICE_LIST_INFO_NODE* nodes, LPDWORD count);

} // extern "C"
