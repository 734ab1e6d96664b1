// A USB device whose controller runs its boot loader, or a firmware that takes the same vendor requests: moving memory
// through endpoint 0, starting a program, and writing a firmware image to RAM, to an I2C EEPROM or to an SPI flash. No
// thread, no lock: one operation at a time, as on any endpoint.
//
// Every operation blocks until its transfers have ended, each within `TimeOut` of ControlEndPt, whose request fields
// stay as the last transfer had them. With no device open the bool operations give false and nothing is sent.
#pragma once

#include "jorvet/cyusb/fx3_status.h"
#include "jorvet/cyusb/usb_device.h"

inline constexpr ULONG CYWB_BL_MAX_BUFFER_SIZE_WHEN_USING_EP0_TRANSPORT = 2048; // most bytes in a download's request
inline constexpr ULONG SPI_FLASH_SECTOR_SIZE_IN_BYTE = 65536;                   // what is erased at a time
inline constexpr ULONG SPI_FLASH_PAGE_SIZE_IN_BYTE = 256;                       // what SPI addresses count

// Where DownloadFw writes.
enum FX3_FWDWNLOAD_MEDIA_TYPE : int { FX3_MEDIUM_RAM = 1, FX3_MEDIUM_I2C = 2, FX3_MEDIUM_SPI = 3 };

namespace jorvet::cyusb {
class fx3_download;
} // namespace jorvet::cyusb

// The vendor requests that are used.
namespace jorvet::cyusb::fx3_request {
inline constexpr UCHAR ram = 0xA0; // reads and writes memory; a write without data starts the program
inline constexpr UCHAR i2c_write = 0xBA;
inline constexpr UCHAR i2c_read = 0xBB;
inline constexpr UCHAR spi_write = 0xC2;
inline constexpr UCHAR spi_read = 0xC3;
inline constexpr UCHAR spi_erase = 0xC4; // and, read, whether the erasing goes on
} // namespace jorvet::cyusb::fx3_request

// A vendor request with data. The address goes out as wValue (low half) and wIndex (high half).
struct vendorCmdData {
    UCHAR* buf; // the data, or room for them: `size` bytes; not touched when that is not above 0
    UCHAR opCode;
    ULONG addr;
    LONG size;
    bool isRead;
};

class CCyFX3Device : public CCyUSBDevice {
  public:
    // Opens the first device of the driver's class, if there is one.
    CCyFX3Device();

    // One request, or more of them with the same address where `size` is above 65535 or the device moves fewer bytes
    // than asked. False when one fails, or moves nothing. A read that fails has filled `buf` up to there.
    bool Ep0VendorCommand(vendorCmdData command);
    // The same for `count` bytes, to the device and from it.
    bool DownloadBufferToDevice(ULONG address, USHORT count, UCHAR* buffer, UCHAR opCode);
    bool UploadBufferFromDevice(ULONG address, USHORT count, UCHAR* buffer, UCHAR opCode);
    // Starts the program at `address`, which goes out as wIndex (low half) and wValue (high half).
    bool SetProgramEntry(UCHAR opCode, ULONG address);
    // Whether the device lets memory be read.
    bool IsBootLoaderRunning();

    // Erases one sector and waits until the flash says that it is done: at most 30 s, then false.
    bool EraseSectorOfSPIFlash(ULONG sector, UCHAR opCode);
    // Writes from the page on that `address`, in bytes, lies in. The sectors must have been erased.
    bool WriteToSPIFlash(UCHAR* buffer, ULONG length, ULONG address, UCHAR opCode);

    // Write an image and give an FX3_STATUS. After a failure the medium holds what was written before it.
    //
    // Each piece written to RAM is read back and compared, in up to three attempts; then the program is started, and
    // whether that request succeeds does not count.
    int DownloadFwToRam(const UCHAR* image, ULONG length, UCHAR opCode);
    // `MaxPktSize` of ControlEndPt must be 1 to 2048 unless the length is a multiple of 2048; zeros fill the last
    // packet. Nothing is compared.
    int DownloadUserIMGtoI2CE2PROM(const UCHAR* image, ULONG length, UCHAR opCode);
    // Erases the sectors that the image needs, with `opCode`, then writes it, 0xFF filling the last page. An image
    // above 16 MiB comes round to page 0 and overwrites its own beginning.
    int DownloadUserIMGtoSPIFLASH(const UCHAR* image, ULONG length, UCHAR opCode);
    // Reads the file and writes it to the medium. FX3_NO_FILE for one that is empty or longer than 4 GiB, too.
    int DownloadFw(const char* fileName, FX3_FWDWNLOAD_MEDIA_TYPE medium);

  private:
    friend class jorvet::cyusb::fx3_download;
    bool Transfer(UCHAR opCode, ULONG address, CCyDirection direction, UCHAR* buffer, LONG& length);
};
