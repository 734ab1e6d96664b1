// The vendor requests of an FX3 controller's boot loader, and the sizes that go with them. No behaviour.
#pragma once

#include <cstddef>

#include "jorvet/system/win32.h"

// The most bytes that one request of a download carries.
inline constexpr ULONG CYWB_BL_MAX_BUFFER_SIZE_WHEN_USING_EP0_TRANSPORT = 2048;
inline constexpr ULONG SPI_FLASH_SECTOR_SIZE_IN_BYTE = 65536; // erased at once
inline constexpr ULONG SPI_FLASH_PAGE_SIZE_IN_BYTE = 256;     // the unit of SPI addresses

// Where a download writes.
enum FX3_FWDWNLOAD_MEDIA_TYPE : int { FX3_MEDIUM_RAM = 1, FX3_MEDIUM_I2C = 2, FX3_MEDIUM_SPI = 3 };

// A vendor request with data. The address is sent as wValue (low half) and wIndex (high half).
struct vendorCmdData {
    UCHAR* buf; // `size` bytes to send or to fill; not touched when `size` is not above 0
    UCHAR opCode;
    ULONG addr;
    LONG size;
    bool isRead;
};

// bRequest values of the vendor requests.
namespace jorvet::cyusb::fx3_request {
inline constexpr UCHAR ram = 0xA0; // reads and writes memory; a write without data starts the program
inline constexpr UCHAR i2c_write = 0xBA;
inline constexpr UCHAR i2c_read = 0xBB;
inline constexpr UCHAR spi_write = 0xC2;
inline constexpr UCHAR spi_read = 0xC3;
inline constexpr UCHAR spi_erase = 0xC4; // as a read: 1 byte, not 0 while the erasure is running
} // namespace jorvet::cyusb::fx3_request

namespace jorvet::cyusb {

// The address of an SPI request for the page that contains the byte.
constexpr ULONG spi_address(std::size_t byte_address) {
    return static_cast<ULONG>(byte_address / SPI_FLASH_PAGE_SIZE_IN_BYTE << 16);
}

} // namespace jorvet::cyusb
