// The functions of the D2XX driver library, each once: X(ordinal, name, parameters, arguments). FTD2XX.dll exports them
// by ordinal, without names. The forwarding functions on Windows and the module definitions of both DLLs are made from
// this list; the contracts are in d2xx.h.
#pragma once

// clang-format off: the build reads one function from each line
#define JV_D2XX_FUNCTIONS(X)                                                                                           \
    X(1, FT_Open, (int device, FT_HANDLE* handle), (device, handle))                                                   \
    X(2, FT_Close, (FT_HANDLE handle), (handle))                                                                       \
    X(3, FT_Read, (FT_HANDLE handle, LPVOID buffer, DWORD count, LPDWORD read), (handle, buffer, count, read))         \
    X(4, FT_Write, (FT_HANDLE handle, LPVOID buffer, DWORD count, LPDWORD written), (handle, buffer, count, written))  \
    X(6, FT_ResetDevice, (FT_HANDLE handle), (handle))                                                                 \
    X(7, FT_SetBaudRate, (FT_HANDLE handle, ULONG baud_rate), (handle, baud_rate))                                     \
    X(8, FT_SetDataCharacteristics, (FT_HANDLE handle, UCHAR word_length, UCHAR stop_bits, UCHAR parity),              \
      (handle, word_length, stop_bits, parity))                                                                        \
    X(9, FT_SetFlowControl, (FT_HANDLE handle, USHORT flow_control, UCHAR xon, UCHAR xoff),                            \
      (handle, flow_control, xon, xoff))                                                                               \
    X(16, FT_Purge, (FT_HANDLE handle, ULONG mask), (handle, mask))                                                    \
    X(17, FT_SetTimeouts, (FT_HANDLE handle, ULONG read_timeout, ULONG write_timeout),                                 \
      (handle, read_timeout, write_timeout))                                                                           \
    X(18, FT_GetQueueStatus, (FT_HANDLE handle, LPDWORD count), (handle, count))                                       \
    X(19, FT_SetEventNotification, (FT_HANDLE handle, DWORD mask, LPVOID event), (handle, mask, event))                \
    X(21, FT_GetStatus, (FT_HANDLE handle, LPDWORD received, LPDWORD to_send, LPDWORD events),                         \
      (handle, received, to_send, events))                                                                             \
    X(29, FT_SetLatencyTimer, (FT_HANDLE handle, UCHAR milliseconds), (handle, milliseconds))                          \
    X(33, FT_SetUSBParameters, (FT_HANDLE handle, ULONG in_transfer_size, ULONG out_transfer_size),                    \
      (handle, in_transfer_size, out_transfer_size))                                                                   \
    X(65, FT_SetResetPipeRetryCount, (FT_HANDLE handle, DWORD count), (handle, count))                                 \
    X(70, FT_CreateDeviceInfoList, (LPDWORD count), (count))                                                           \
    X(71, FT_GetDeviceInfoList, (FT_DEVICE_LIST_INFO_NODE * nodes, LPDWORD count), (nodes, count))
// clang-format on
