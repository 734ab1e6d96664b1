// A program that includes the headers of Windows for USB beside ours: compiled, to be run by nobody.
#include <windows.h>

#include <winusb.h>

#include <usbspec.h>

#include "jorvet/cyusb/fx3_device.h"
#include "jorvet/cyusb/usb_device.h"

static_assert(sizeof(USB_DEVICE_DESCRIPTOR) == 18 && sizeof(WINUSB_SETUP_PACKET) == 8);
