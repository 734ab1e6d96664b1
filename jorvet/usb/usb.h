/* Real devices on Linux, through libusb. Once started they come to the bus by themselves, before the first look at it,
 * and leave it; everything above works on them as on simulated ones. An application that uses the shared libraries need
 * not call any of this: libjorvet-platform loads libjorvet-usb when it is there. Strict C. Any thread; no function
 * throws. */
#ifndef JORVET_USB_USB_H
#define JORVET_USB_USB_H

#include "jorvet/base/export.h"
#include "jorvet/base/kinds.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Has the first look at the bus find real devices, unless the process has a simulated one by then. For programs that
 * link the static libraries; does nothing the second time. */
JV_PLATFORM_API void jv_usb_start(void);

/* Counts devices with these IDs among ours, as bridges (JV_KIND_FTDI), controllers (JV_KIND_CYPRESS), or not at all
 * (JV_KIND_NONE). To be called before the first look at the bus. */
JV_PLATFORM_API void jv_usb_add_id(unsigned short vendor_id, unsigned short product_id, unsigned int kind);

/* Takes the devices off the bus and ends the library's event thread. For a clean end of a process, after its instances
 * have been closed; the bus stays empty then. */
JV_PLATFORM_API void jv_usb_end(void);

#ifdef __cplusplus
}
#endif

#endif
