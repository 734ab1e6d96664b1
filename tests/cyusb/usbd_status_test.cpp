// The texts of USB bus status words.
#include <gtest/gtest.h>

#include "jorvet/cyusb/usb_device.h"

namespace {

TEST(UsbdStatusString, names_state_and_status) {
    const std::pair<ULONG, std::string> rows[] = {
        {0, "[state=SUCCESS status=USBD_STATUS_SUCCESS]"},
        {0x40000000, "[state=SUCCESS status=USBD_STATUS_SUCCESS]"},
        {0x80000300, " [state=ERROR   status=UNKNOWN]"},
        {0x30, " [state=SUCCESS status=USBD_STATUS_ENDPOINT_HALTED]"},
        {0xC000000E, " [state=STALLED status=UNKNOWN]"},
        {0x4000000F, " [state=PENDING status=USBD_STATUS_NOT_ACCESSED]"},
        {0x20000001, "status=UNKNOWN]"},
        {0xC0000D00, " [state=STALLED status=USBD_STATUS_FRAME_CONTROL_NOT_OWNED]"}};
    for (const auto& [status, expected] : rows) {
        char text[60];
        CCyUSBDevice::UsbdStatusString(status, text);
        EXPECT_EQ(expected, text);
    }
}

} // namespace
