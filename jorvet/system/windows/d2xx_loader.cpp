// The D2XX functions on Windows: each is looked up in the driver's FTD2XX.dll, by its ordinal, when it is first called.
// So a program runs on a PC without that driver, too; every function then says FT_DEVICE_NOT_FOUND. Any thread.
#include <atomic>

#include "jorvet/system/d2xx.h"

namespace {

// The driver's function at an ordinal, or null. By way of void*: compilers warn when one type of function is made
// another.
void* look_up(WORD ordinal) {
    const HMODULE driver = LoadLibraryA("FTD2XX.dll"); // stays loaded until the process ends
    return driver == nullptr ? nullptr : reinterpret_cast<void*>(GetProcAddress(driver, MAKEINTRESOURCEA(ordinal)));
}

// Calls the driver's function at `Ordinal`, which has the type of `Declared`. Looks for it until it is there: the
// driver may come later.
template <auto Declared, WORD Ordinal, class... Arguments>
FT_STATUS forward(Arguments... arguments) {
    static std::atomic<decltype(Declared)> found{nullptr};
    auto function = found.load();
    if (function == nullptr)
        found = function = reinterpret_cast<decltype(Declared)>(look_up(Ordinal));
    return function != nullptr ? function(arguments...) : FT_STATUS{FT_DEVICE_NOT_FOUND};
}

} // namespace

FT_STATUS WINAPI FT_Open(int device, FT_HANDLE* handle) {
    return forward<&FT_Open, 1>(device, handle);
}

FT_STATUS WINAPI FT_Close(FT_HANDLE handle) {
    return forward<&FT_Close, 2>(handle);
}

FT_STATUS WINAPI FT_Read(FT_HANDLE handle, LPVOID buffer, DWORD count, LPDWORD read) {
    return forward<&FT_Read, 3>(handle, buffer, count, read);
}

FT_STATUS WINAPI FT_Write(FT_HANDLE handle, LPVOID buffer, DWORD count, LPDWORD written) {
    return forward<&FT_Write, 4>(handle, buffer, count, written);
}

FT_STATUS WINAPI FT_ResetDevice(FT_HANDLE handle) {
    return forward<&FT_ResetDevice, 6>(handle);
}

FT_STATUS WINAPI FT_SetBaudRate(FT_HANDLE handle, ULONG baud_rate) {
    return forward<&FT_SetBaudRate, 7>(handle, baud_rate);
}

FT_STATUS WINAPI FT_SetDataCharacteristics(FT_HANDLE handle, UCHAR word_length, UCHAR stop_bits, UCHAR parity) {
    return forward<&FT_SetDataCharacteristics, 8>(handle, word_length, stop_bits, parity);
}

FT_STATUS WINAPI FT_SetFlowControl(FT_HANDLE handle, USHORT flow_control, UCHAR xon, UCHAR xoff) {
    return forward<&FT_SetFlowControl, 9>(handle, flow_control, xon, xoff);
}

FT_STATUS WINAPI FT_Purge(FT_HANDLE handle, ULONG mask) {
    return forward<&FT_Purge, 16>(handle, mask);
}

FT_STATUS WINAPI FT_SetTimeouts(FT_HANDLE handle, ULONG read_timeout, ULONG write_timeout) {
    return forward<&FT_SetTimeouts, 17>(handle, read_timeout, write_timeout);
}

FT_STATUS WINAPI FT_GetQueueStatus(FT_HANDLE handle, LPDWORD count) {
    return forward<&FT_GetQueueStatus, 18>(handle, count);
}

FT_STATUS WINAPI FT_SetEventNotification(FT_HANDLE handle, DWORD mask, LPVOID event) {
    return forward<&FT_SetEventNotification, 19>(handle, mask, event);
}

FT_STATUS WINAPI FT_GetStatus(FT_HANDLE handle, LPDWORD received, LPDWORD to_send, LPDWORD events) {
    return forward<&FT_GetStatus, 21>(handle, received, to_send, events);
}

FT_STATUS WINAPI FT_SetLatencyTimer(FT_HANDLE handle, UCHAR milliseconds) {
    return forward<&FT_SetLatencyTimer, 29>(handle, milliseconds);
}

FT_STATUS WINAPI FT_SetUSBParameters(FT_HANDLE handle, ULONG in_transfer_size, ULONG out_transfer_size) {
    return forward<&FT_SetUSBParameters, 33>(handle, in_transfer_size, out_transfer_size);
}

FT_STATUS WINAPI FT_SetResetPipeRetryCount(FT_HANDLE handle, DWORD count) {
    return forward<&FT_SetResetPipeRetryCount, 65>(handle, count);
}

FT_STATUS WINAPI FT_CreateDeviceInfoList(LPDWORD count) {
    return forward<&FT_CreateDeviceInfoList, 70>(count);
}

FT_STATUS WINAPI FT_GetDeviceInfoList(FT_DEVICE_LIST_INFO_NODE* nodes, LPDWORD count) {
    return forward<&FT_GetDeviceInfoList, 71>(nodes, count);
}
