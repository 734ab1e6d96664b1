// The three downloads. Runs on the caller's thread.
#include "jorvet/cyusb/fx3_download.h"

#include <algorithm>
#include <cstdio>
#include <limits>
#include <memory>
#include <thread>
#include <utility>

namespace jorvet::cyusb {

namespace {

constexpr std::size_t max_request = CYWB_BL_MAX_BUFFER_SIZE_WHEN_USING_EP0_TRANSPORT;
constexpr int attempts = 3; // for a piece of a RAM image
constexpr UCHAR erased_byte = 0xFF;
constexpr int prompt_polls = 4;
constexpr std::chrono::milliseconds poll_pause{10}; // between the polls after those

static_assert(ram_image::longest_piece == max_request);

// ---- Addresses in a row of EEPROMs
// ------------------------------------------------------------------------------------

constexpr unsigned blocks_of_64k = 7; // a size code: two such blocks in each EEPROM

// The size code of an image; 0 where it has none.
unsigned size_code(image_bytes image) {
    const unsigned code = image.size < 3 ? 0 : image.data[2] >> 1 & 7;
    return code < 2 ? 0 : code;
}

// Code 2 is 4 KiB; each higher code doubles it.
std::size_t block_size(unsigned code) {
    return std::size_t{4096} << (std::min(code, 6u) - 2);
}

// An address in the row of EEPROMs.
struct i2c_place {
    USHORT select = 0; // which device, or block of it
    USHORT index = 0;  // the address in it

    ULONG address() const { return ULONG{index} << 16 | select; }

    // Advances past a whole chunk, which ends at `offset` of the image.
    void advance(unsigned code, std::size_t offset) {
        index = static_cast<USHORT>(index + max_request);
        if (offset % block_size(code) == 0) {
            select = next_block(code, offset);
            index = 0;
        }
    }

  private:
    USHORT next_block(unsigned code, std::size_t offset) const {
        if (code != blocks_of_64k)
            return (select + 1) & 7;
        if (offset < 2 * block_size(code))
            return 4; // the upper block of the first device
        return select == 4 ? 1 : 5;
    }
};

std::size_t rounded_up(std::size_t size, std::size_t unit) {
    return (size + unit - 1) / unit * unit;
}

} // namespace

// ---- Images --------------------------------------------------------------------------------------------------------

std::vector<UCHAR> read_image(const char* file_name) {
    struct close {
        void operator()(std::FILE* file) const { static_cast<void>(std::fclose(file)); }
    };
    const std::unique_ptr<std::FILE, close> file(std::fopen(file_name, "rb"));
    if (file == nullptr || std::fseek(file.get(), 0, SEEK_END) != 0)
        return {};
    const long long length = std::ftell(file.get());
    // A directory can be opened, too, and reports a huge length.
    if (length <= 0 || length > std::numeric_limits<ULONG>::max() || std::fseek(file.get(), 0, SEEK_SET) != 0)
        return {};
    std::vector<UCHAR> bytes(static_cast<std::size_t>(length));
    if (std::fread(bytes.data(), 1, bytes.size(), file.get()) != bytes.size())
        return {};
    return bytes;
}

FX3_STATUS check_image(FX3_FWDWNLOAD_MEDIA_TYPE medium, image_bytes image) {
    switch (medium) {
    case FX3_MEDIUM_RAM:
        return check_ram_image(image.data, image.size);
    case FX3_MEDIUM_I2C:
        return size_code(image) == 0 ? FX3_NO_EEPROM_SIZE : FX3_OK;
    case FX3_MEDIUM_SPI:
        return FX3_OK;
    }
    return FX3_NO_SUCH_MEDIUM;
}

// ---- Downloads -----------------------------------------------------------------------------------------------------

fx3_download::fx3_download(vendor_channel channel, fx3_download_options options)
    : channel_(channel), options_(std::move(options)) {}

void fx3_download::report(phase now, std::size_t done, std::size_t total) const {
    if (options_.progress)
        options_.progress(now, std::min(done, total), total);
}

FX3_STATUS fx3_download::to_medium(FX3_FWDWNLOAD_MEDIA_TYPE medium, image_bytes image) const {
    switch (medium) {
    case FX3_MEDIUM_RAM:
        return to_ram(image, fx3_request::ram);
    case FX3_MEDIUM_I2C:
        return to_i2c(image, fx3_request::i2c_write);
    case FX3_MEDIUM_SPI:
        return to_spi(image, fx3_request::spi_erase);
    }
    return FX3_NO_SUCH_MEDIUM;
}

FX3_STATUS fx3_download::to_ram(image_bytes image, UCHAR op_code) const {
    ram_image walk(image.data, image.size);
    ram_step step = walk.next();
    for (; !step.is_last(); step = walk.next()) {
        if (!load(step, op_code))
            return FX3_TRANSFER_FAILED;
        report(phase::writing, static_cast<std::size_t>(step.data - image.data) + step.size, image.size);
    }
    if (step.status != FX3_OK)
        return step.status;
    channel_.send(op_code, step.address); // may fail because the program starts before the loader has answered
    report(phase::writing, image.size, image.size);
    return FX3_OK;
}

bool fx3_download::load(const ram_step& piece, UCHAR op_code) const {
    std::vector<UCHAR> read_back(piece.size);
    for (int attempt = 0; attempt < attempts; ++attempt)
        if (channel_.write(op_code, piece.address, piece.data, piece.size) &&
            channel_.read(op_code, piece.address, read_back.data(), piece.size) &&
            std::equal(read_back.begin(), read_back.end(), piece.data))
            return true;
    return false;
}

FX3_STATUS fx3_download::to_i2c(image_bytes image, UCHAR op_code) const {
    const unsigned code = size_code(image);
    if (code == 0)
        return FX3_NO_EEPROM_SIZE;
    const std::size_t rest = image.size % max_request, whole = image.size - rest;
    const std::size_t packet = channel_.packet_size();
    if (rest > 0 && (packet == 0 || packet > max_request))
        return FX3_TRANSFER_FAILED;
    i2c_place place;
    // In single transfers: if only a part of a chunk moved, the device would write the rest over that part.
    for (std::size_t offset = 0; offset < whole; place.advance(code, offset)) {
        if (!channel_.write_at_once(op_code, place.address(), image.data + offset, max_request))
            return FX3_TRANSFER_FAILED;
        offset += max_request;
        report(phase::writing, offset, image.size);
    }
    if (rest == 0)
        return FX3_OK;
    std::vector<UCHAR> last(image.data + whole, image.data + image.size);
    last.resize(rounded_up(rest, packet));
    if (!channel_.write_at_once(op_code, place.address(), last.data(), last.size()) ||
        !channel_.read_at_once(fx3_request::i2c_read, place.address(), last.data(), last.size()))
        return FX3_TRANSFER_FAILED;
    report(phase::writing, image.size, image.size);
    return FX3_OK;
}

FX3_STATUS fx3_download::to_spi(image_bytes image, UCHAR erase_code) const {
    if (!erase_for(image.size, erase_code))
        return FX3_ERASE_FAILED;
    for (std::size_t offset = 0; offset < image.size; offset += max_request) {
        const image_bytes chunk{image.data + offset, std::min(image.size - offset, max_request)};
        if (!write_spi(offset, chunk))
            return FX3_TRANSFER_FAILED;
        report(phase::writing, offset + chunk.size, image.size);
    }
    return FX3_OK;
}

// Writes whole pages.
bool fx3_download::write_spi(std::size_t offset, image_bytes chunk) const {
    const std::size_t size = rounded_up(chunk.size, SPI_FLASH_PAGE_SIZE_IN_BYTE);
    if (size == chunk.size)
        return channel_.write(fx3_request::spi_write, spi_address(offset), chunk.data, size);
    std::vector<UCHAR> filled(chunk.data, chunk.data + chunk.size);
    filled.resize(size, erased_byte);
    return channel_.write(fx3_request::spi_write, spi_address(offset), filled.data(), size);
}

bool fx3_download::erase_for(std::size_t size, UCHAR op_code) const {
    const std::size_t sectors = rounded_up(size, SPI_FLASH_SECTOR_SIZE_IN_BYTE) / SPI_FLASH_SECTOR_SIZE_IN_BYTE;
    for (std::size_t sector = 0; sector < sectors; ++sector) {
        if (!erase_sector(static_cast<ULONG>(sector), op_code))
            return false;
        report(phase::erasing, (sector + 1) * SPI_FLASH_SECTOR_SIZE_IN_BYTE, size);
    }
    return true;
}

bool fx3_download::erase_sector(ULONG sector, UCHAR op_code) const {
    using clock = std::chrono::steady_clock;
    const auto give_up = clock::now() + options_.erase_limit;
    if (!channel_.send(op_code, sector << 16 | 1))
        return false;
    for (int polls = 1;; ++polls) {
        UCHAR busy = 1;
        if (!channel_.read(op_code, sector << 16, &busy, 1))
            return false;
        if (busy == 0 || clock::now() >= give_up)
            return busy == 0;
        if (polls >= prompt_polls)
            std::this_thread::sleep_for(poll_pause);
    }
}

} // namespace jorvet::cyusb
