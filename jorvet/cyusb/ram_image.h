// The walk over a firmware image for the controller's RAM: what to load where, and where the program starts. It accepts
// any bytes, stays inside them and sends nothing. Its only state is its position; no thread, no lock.
//
// An image: "CY", two bytes that are ignored here, then sections: a length L in 32-bit words, an address, and 4L bytes
// of data, numbers little-endian. The section with L = 0 ends it; its address is where the program starts.
#pragma once

#include <cstddef>
#include <cstdint>

#include "jorvet/cyusb/fx3_status.h"

namespace jorvet::cyusb {

// A piece of a section; or, without data, the start of the program; or why the rest of the image is invalid.
struct ram_step {
    FX3_STATUS status = FX3_OK; // or FX3_NOT_AN_IMAGE, FX3_IMAGE_TRUNCATED, FX3_SECTION_TOO_LONG
    std::uint32_t address = 0;
    const std::uint8_t* data = nullptr; // in the image
    std::uint32_t size = 0;

    bool is_last() const { return status != FX3_OK || size == 0; }
};

class ram_image {
  public:
    static constexpr std::uint32_t longest_piece =
        2048; // sections are divided into pieces of this size, the last one possibly shorter

    // The bytes must outlive the walk.
    ram_image(const std::uint8_t* bytes, std::size_t length) : bytes_(bytes), length_(length) {}

    // The next step. The last one is repeated.
    ram_step next();

  private:
    bool begins_well() const { return length_ >= 2 && bytes_[0] == 'C' && bytes_[1] == 'Y'; }
    std::uint32_t word_at(std::size_t offset) const;
    ram_step enter_section();
    ram_step take_piece();

    const std::uint8_t* bytes_;
    std::size_t length_;
    std::size_t offset_ = 4;
    std::uint64_t left_ = 0; // bytes of the section not yet returned; four times the largest word fits
    std::uint32_t address_ = 0;
};

// How the walk ends: FX3_OK when it reaches the start of the program.
FX3_STATUS check_ram_image(const std::uint8_t* bytes, std::size_t length);

} // namespace jorvet::cyusb
