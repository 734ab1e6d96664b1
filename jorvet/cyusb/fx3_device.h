// A USB device whose controller runs its boot loader, or a firmware that takes the same vendor requests: moving memory
// through endpoint 0, starting a program, and writing a firmware image to RAM, to an I2C EEPROM or to an SPI flash. Not
// exported by the shared library: link jorvet::jorvet_static.
//
// No thread, no lock: one operation at a time, as on any endpoint. Every operation blocks until its transfers have
// ended, each within `TimeOut` of ControlEndPt, whose request fields stay as the last transfer set them. With no device
// open the bool operations return false and nothing is sent.
#pragma once

#include "jorvet/cyusb/fx3_requests.h"
#include "jorvet/cyusb/fx3_status.h"
#include "jorvet/cyusb/usb_device.h"
#include "jorvet/cyusb/vendor_channel.h"

class CCyFX3Device : public CCyUSBDevice {
  public:
    // Opens the first device of the driver's class, if there is one.
    CCyFX3Device();

    // The endpoint 0 of the open device, for vendor requests; valid until the device is closed.
    jorvet::cyusb::vendor_channel VendorChannel();

    // One request, or several with the same address when `size` is above 65,535 or the device moves fewer bytes than
    // asked. False when one fails or moves nothing. A read that fails has filled `buf` with the bytes of the requests
    // before.
    bool Ep0VendorCommand(vendorCmdData command);
    // The same for `count` bytes, to the device and from it.
    bool DownloadBufferToDevice(ULONG address, USHORT count, UCHAR* buffer, UCHAR opCode);
    bool UploadBufferFromDevice(ULONG address, USHORT count, UCHAR* buffer, UCHAR opCode);
    // Starts the program at `address`, which is sent as wIndex (low half) and wValue (high half).
    bool SetProgramEntry(UCHAR opCode, ULONG address);
    // Whether the device lets memory be read.
    bool IsBootLoaderRunning();

    // Erases one sector and waits until the flash reports that it is done; false when that takes longer than 30 s.
    bool EraseSectorOfSPIFlash(ULONG sector, UCHAR opCode);
    // Writes from the start of the page that contains byte `address`. The sectors must have been erased.
    bool WriteToSPIFlash(UCHAR* buffer, ULONG length, ULONG address, UCHAR opCode);

    // Write an image and return an FX3_STATUS. After a failure the medium keeps what was written before it.
    //
    // Each piece written to RAM is read back and compared, in up to three attempts. Then the program is started; the
    // result of that request is ignored.
    int DownloadFwToRam(const UCHAR* image, ULONG length, UCHAR opCode);
    // `MaxPktSize` of ControlEndPt must be 1 to 2048 unless the length is a multiple of 2048. Zeros fill the last
    // packet. Nothing is compared.
    int DownloadUserIMGtoI2CE2PROM(const UCHAR* image, ULONG length, UCHAR opCode);
    // Erases the sectors that the image needs, with `opCode`, then writes it; 0xFF fills the last page. An image above
    // 16 MiB wraps to page 0 and overwrites its own beginning.
    int DownloadUserIMGtoSPIFLASH(const UCHAR* image, ULONG length, UCHAR opCode);
    // Reads the file and writes it to the medium. FX3_NO_FILE also for a file that is empty or longer than 4 GiB.
    int DownloadFw(const char* fileName, FX3_FWDWNLOAD_MEDIA_TYPE medium);
};
