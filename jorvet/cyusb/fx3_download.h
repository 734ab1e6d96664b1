// Firmware downloads: the requests that bring an image to RAM, to an I2C EEPROM and to an SPI flash, with a progress
// report for whoever shows one. Internal to cyusb/ and to the tool. Runs, and waits, on the caller's thread.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <vector>

#include "jorvet/cyusb/fx3_device.h"
#include "jorvet/cyusb/ram_image.h"

namespace jorvet::cyusb {

struct image_bytes {
    const UCHAR* data;
    std::size_t size;
};

// The bytes of a file; none when it cannot be read, is empty, or is longer than 4 GiB.
std::vector<UCHAR> read_image(const char* file_name);

// Whether the image can go to that medium at all: FX3_OK, or the status with which the download would refuse it or
// break off because of its bytes.
FX3_STATUS check_image(FX3_FWDWNLOAD_MEDIA_TYPE medium, image_bytes image);

// The address of an SPI request for the page in which the byte lies.
constexpr ULONG spi_address(std::size_t byte_address) {
    return static_cast<ULONG>(byte_address / SPI_FLASH_PAGE_SIZE_IN_BYTE << 16);
}

struct fx3_download_options {
    enum phase { erasing, writing };
    // Called after each step with the bytes of the image that are done, out of all; empty for none.
    std::function<void(phase now, std::size_t done, std::size_t total)> progress;
    std::chrono::milliseconds erase_limit{30000}; // for one sector; a flash needs a few seconds at most
};

// The operations of the device class, see there. The device must outlive it.
class fx3_download {
  public:
    explicit fx3_download(CCyFX3Device& device, fx3_download_options options = {});

    FX3_STATUS to_medium(FX3_FWDWNLOAD_MEDIA_TYPE medium, image_bytes image) const;
    FX3_STATUS to_ram(image_bytes image, UCHAR op_code) const;
    FX3_STATUS to_i2c(image_bytes image, UCHAR op_code) const;
    FX3_STATUS to_spi(image_bytes image, UCHAR erase_code) const;
    bool erase_sector(ULONG sector, UCHAR op_code) const;

  private:
    using phase = fx3_download_options::phase;
    bool load(const ram_step& piece, UCHAR op_code) const;
    bool write_i2c(ULONG address, std::vector<UCHAR>& buffer, UCHAR op_code) const;
    bool read_back_i2c(ULONG address, std::vector<UCHAR>& buffer) const;
    bool erase_for(std::size_t size, UCHAR op_code) const;
    void report(phase now, std::size_t done, std::size_t total) const;

    CCyFX3Device& device_;
    const fx3_download_options options_;
};

} // namespace jorvet::cyusb
