// Walking RAM images. Any thread.
#include "jorvet/cyusb/ram_image.h"

#include <algorithm>

namespace jorvet::cyusb {

namespace {

constexpr std::size_t header_size = 8; // of a section

} // namespace

std::uint32_t ram_image::word_at(std::size_t offset) const {
    std::uint32_t word = 0;
    for (std::size_t i = 4; i-- > 0;)
        word = word << 8 | bytes_[offset + i];
    return word;
}

ram_step ram_image::next() {
    if (!begins_well())
        return {FX3_NOT_AN_IMAGE};
    return left_ == 0 ? enter_section() : take_piece();
}

ram_step ram_image::enter_section() {
    if (offset_ > length_ || length_ - offset_ < header_size)
        return {FX3_IMAGE_TRUNCATED};
    const std::uint32_t words = word_at(offset_), address = word_at(offset_ + 4);
    if (words == 0)
        return {FX3_OK, address};
    offset_ += header_size;
    address_ = address;
    left_ = std::uint64_t{words} * 4;
    return take_piece();
}

ram_step ram_image::take_piece() {
    const auto size = static_cast<std::uint32_t>(std::min<std::uint64_t>(left_, longest_piece));
    if (size > length_)
        return {FX3_SECTION_TOO_LONG};
    if (size > length_ - offset_)
        return {FX3_IMAGE_TRUNCATED};
    const ram_step piece{FX3_OK, address_, bytes_ + offset_, size};
    offset_ += size;
    address_ += size;
    left_ -= size;
    return piece;
}

FX3_STATUS check_ram_image(const std::uint8_t* bytes, std::size_t length) {
    ram_image image(bytes, length);
    ram_step step;
    do
        step = image.next();
    while (!step.is_last());
    return step.status;
}

} // namespace jorvet::cyusb
