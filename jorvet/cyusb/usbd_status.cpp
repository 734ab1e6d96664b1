// The texts of USB bus status words. Any thread.
#include <cstdio>

#include "jorvet/cyusb/usb_device.h"

namespace {

constexpr std::size_t text_size = 60; // the longest text just fits

struct status_name {
    ULONG status;
    const char* name;
};

constexpr status_name status_names[] = {
    {0xC0000001, "USBD_STATUS_CRC"},
    {0xC0000002, "USBD_STATUS_BTSTUFF"},
    {0xC0000003, "USBD_STATUS_DATA_TOGGLE_MISMATCH"},
    {0xC0000004, "USBD_STATUS_STALL_PID"},
    {0xC0000005, "USBD_STATUS_DEV_NOT_RESPONDING"},
    {0xC0000006, "USBD_STATUS_PID_CHECK_FAILURE"},
    {0xC0000007, "USBD_STATUS_UNEXPECTED_PID"},
    {0xC0000008, "USBD_STATUS_DATA_OVERRUN"},
    {0xC0000009, "USBD_STATUS_DATA_UNDERRUN"},
    {0xC000000A, "USBD_STATUS_RESERVED1"},
    {0xC000000B, "USBD_STATUS_RESERVED2"},
    {0xC000000C, "USBD_STATUS_BUFFER_OVERRUN"},
    {0xC000000D, "USBD_STATUS_BUFFER_UNDERRUN"},
    {0xC000000F, "USBD_STATUS_NOT_ACCESSED"},
    {0xC0000010, "USBD_STATUS_FIFO"},
    {0xC0000030, "USBD_STATUS_ENDPOINT_HALTED"},
    {0xC0000A00, "USBD_STATUS_BAD_START_FRAME"},
    {0xC0000B00, "USBD_STATUS_ISOCH_REQUEST_FAILED"},
    {0xC0000C00, "USBD_STATUS_FRAME_CONTROL_OWNED"},
    {0xC0000D00, "USBD_STATUS_FRAME_CONTROL_NOT_OWNED"},
};

const char* state_text(ULONG status) {
    switch (status >> 28) {
    case 0x0:
        return " [state=SUCCESS ";
    case 0x4:
        return " [state=PENDING ";
    case 0x8:
        return " [state=ERROR   ";
    case 0xC:
        return " [state=STALLED ";
    default:
        return "";
    }
}

const char* name_of(ULONG status) {
    for (const status_name& entry : status_names) {
        if (entry.status == (status | 0xC0000000))
            return entry.name;
    }
    return "UNKNOWN";
}

} // namespace

void CCyUSBDevice::UsbdStatusString(ULONG status, char* text) {
    if ((status & 0x0FFFFFFF) == 0)
        std::snprintf(text, text_size, "[state=SUCCESS status=USBD_STATUS_SUCCESS]");
    else
        std::snprintf(text, text_size, "%sstatus=%s]", state_text(status), name_of(status));
}
