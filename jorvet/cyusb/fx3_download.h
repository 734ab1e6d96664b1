// Firmware downloads: the requests that write an image to RAM, to an I2C EEPROM or to an SPI flash, with an optional
// progress report. For cyusb/ and the tool. Runs, and waits, on the caller's thread.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <vector>

#include "jorvet/cyusb/fx3_requests.h"
#include "jorvet/cyusb/fx3_status.h"
#include "jorvet/cyusb/ram_image.h"
#include "jorvet/cyusb/vendor_channel.h"

namespace jorvet::cyusb {

struct image_bytes {
    const UCHAR* data;
    std::size_t size;
};

// The bytes of a file; empty when it cannot be read, is empty, or is longer than 4 GiB.
std::vector<UCHAR> read_image(const char* file_name);

// Whether the image suits the medium: FX3_OK, or the status with which the download would refuse it, or fail because of
// its bytes.
FX3_STATUS check_image(FX3_FWDWNLOAD_MEDIA_TYPE medium, image_bytes image);

struct fx3_download_options {
    enum phase { erasing, writing };
    // Called after each step with the number of bytes of the image done so far and in all; may be empty.
    std::function<void(phase now, std::size_t done, std::size_t total)> progress;
    std::chrono::milliseconds erase_limit{30000}; // for one sector; a flash needs a few seconds at most
};

// The downloads of CCyFX3Device; its header describes them. The channel's device must outlive it.
class fx3_download {
  public:
    explicit fx3_download(vendor_channel channel, fx3_download_options options = {});

    FX3_STATUS to_medium(FX3_FWDWNLOAD_MEDIA_TYPE medium, image_bytes image) const;
    FX3_STATUS to_ram(image_bytes image, UCHAR op_code) const;
    FX3_STATUS to_i2c(image_bytes image, UCHAR op_code) const;
    FX3_STATUS to_spi(image_bytes image, UCHAR erase_code) const;
    bool erase_sector(ULONG sector, UCHAR op_code) const;

  private:
    using phase = fx3_download_options::phase;
    bool load(const ram_step& piece, UCHAR op_code) const;
    bool write_spi(std::size_t offset, image_bytes chunk) const;
    bool erase_for(std::size_t size, UCHAR op_code) const;
    void report(phase now, std::size_t done, std::size_t total) const;

    const vendor_channel channel_;
    const fx3_download_options options_;
};

} // namespace jorvet::cyusb
