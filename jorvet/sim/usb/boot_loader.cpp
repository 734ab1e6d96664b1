// The boot loader's requests, and how the memories behind them behave.
#include "jorvet/sim/usb/boot_loader.h"

#include <algorithm>

namespace jorvet::sim {

namespace {

using ports::usb_setup;

constexpr std::uint8_t vendor_out = 0x40, vendor_in = 0xC0; // request types
constexpr std::size_t block_size = 0x10000;
constexpr std::size_t sector_size = 0x10000, page_size = 0x100; // of the SPI flash
constexpr std::uint16_t eeproms = 8;

std::uint32_t address_in(const usb_setup& setup) {
    return std::uint32_t{setup.index} << 16 | setup.value;
}

// Of an address in an EEPROM, among those of all of them.
std::uint32_t cell(std::size_t select, std::size_t address) {
    return static_cast<std::uint32_t>(select * block_size + address);
}

std::optional<byte_vector> done_if(bool done) {
    return done ? std::optional<byte_vector>(byte_vector()) : std::nullopt;
}

} // namespace

// ---- Memories ------------------------------------------------------------------------------------------------------

std::uint8_t sparse_memory::get(std::uint32_t address) const {
    const auto block = blocks_.find(address >> 16);
    return block == blocks_.end() ? untouched_ : block->second[address % block_size];
}

std::uint8_t& sparse_memory::at(std::uint32_t address) {
    byte_vector& block = blocks_.try_emplace(address >> 16, block_size, untouched_).first->second;
    return block[address % block_size];
}

byte_vector sparse_memory::get(std::uint32_t address, std::size_t count) const {
    byte_vector bytes(count);
    for (std::uint8_t& byte : bytes)
        byte = get(address++);
    return bytes;
}

bool fx3_boot_loader::write_ram(std::uint32_t address, const byte_vector& data) {
    for (const std::uint8_t byte : data)
        ram_.at(address++) = byte;
    if (data.empty())
        programs_.push_back(address);
    return true;
}

bool fx3_boot_loader::write_eeprom(const usb_setup& setup, const byte_vector& data) {
    if (setup.value >= eeproms)
        return false;
    const std::size_t page = options_.eeprom_page;
    for (std::size_t i = 0; i < data.size(); ++i) {
        const std::size_t piece = setup.index + i / page * page; // where its page write begins
        const std::size_t place = piece / page * page + (piece + i) % page;
        eeproms_.at(cell(setup.value, place % options_.eeprom_size)) = data[i];
    }
    return true;
}

byte_vector fx3_boot_loader::read_eeprom(const usb_setup& setup) const {
    byte_vector bytes(setup.length);
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = eeproms_.get(cell(setup.value, (setup.index + i) % options_.eeprom_size));
    return bytes;
}

// Whether so many bytes from that page or sector on can be accessed now.
bool fx3_boot_loader::spi_has(const usb_setup& setup, std::size_t unit, std::size_t count) const {
    return busy_polls_ == 0 && setup.index * unit + count <= options_.spi_size;
}

bool fx3_boot_loader::program_spi(const usb_setup& setup, const byte_vector& data) {
    if (setup.value != 0 || !spi_has(setup, page_size, data.size()))
        return false;
    auto address = static_cast<std::uint32_t>(setup.index * page_size);
    for (const std::uint8_t byte : data)
        spi_.at(address++) &= byte;
    return true;
}

bool fx3_boot_loader::erase_spi(const usb_setup& setup) {
    if (setup.value != 1 || !spi_has(setup, sector_size, sector_size))
        return false;
    for (std::size_t i = 0; i < sector_size; ++i)
        spi_.at(static_cast<std::uint32_t>(setup.index * sector_size + i)) = 0xFF;
    busy_polls_ = options_.erase_polls;
    if (erases_for_ever_)
        busy_polls_ = for_ever;
    return true;
}

byte_vector fx3_boot_loader::erase_status() {
    const bool busy = busy_polls_ > 0;
    if (busy && busy_polls_ != for_ever)
        --busy_polls_;
    return {static_cast<std::uint8_t>(busy ? 1 : 0)};
}

// ---- Requests ------------------------------------------------------------------------------------------------------

fx3_boot_loader::fx3_boot_loader(const boot_loader_options& options) : options_(options) {}

std::optional<byte_vector> fx3_boot_loader::answer(const usb_setup& setup, const byte_vector& data_to_device) {
    const std::lock_guard lock(mutex_);
    if (setup.request_type != vendor_out && setup.request_type != vendor_in)
        return std::nullopt;
    if (fails())
        return std::nullopt;
    return setup.request_type == vendor_out ? take(setup, data_to_device) : give(setup);
}

std::optional<byte_vector> fx3_boot_loader::take(const usb_setup& setup, const byte_vector& data) {
    switch (setup.request) {
    case 0xA0:
        return done_if(write_ram(address_in(setup), data));
    case 0xBA:
        return done_if(write_eeprom(setup, data));
    case 0xC2:
        return done_if(program_spi(setup, data));
    case 0xC4:
        return done_if(data.empty() && erase_spi(setup));
    default:
        return std::nullopt;
    }
}

std::optional<byte_vector> fx3_boot_loader::give(const usb_setup& setup) {
    const bool at_start = setup.value == 0;
    switch (setup.request) {
    case 0xA0:
        return corrupted(ram_.get(address_in(setup), setup.length));
    case 0xBB:
        return setup.value < eeproms ? std::optional(corrupted(read_eeprom(setup))) : std::nullopt;
    case 0xC3:
        if (!at_start || !spi_has(setup, page_size, setup.length))
            return std::nullopt;
        return corrupted(spi_.get(static_cast<std::uint32_t>(setup.index * page_size), setup.length));
    case 0xC4:
        return at_start && setup.length > 0 ? std::optional(erase_status()) : std::nullopt;
    default:
        return std::nullopt;
    }
}

// ---- Misbehaviour and a look inside --------------------------------------------------------------------------------

bool fx3_boot_loader::fails() {
    if (fails_in_ == 0 || --fails_in_ > 0)
        return false;
    fails_in_ = fails_always_ ? 1 : 0;
    return true;
}

byte_vector fx3_boot_loader::corrupted(byte_vector read) {
    if (corrupt_reads_ == 0 || read.empty())
        return read;
    if (corrupt_reads_ != for_ever)
        --corrupt_reads_;
    read.back() ^= 0x80;
    return read;
}

void fx3_boot_loader::fail(unsigned nth, bool always) {
    const std::lock_guard lock(mutex_);
    fails_in_ = nth;
    fails_always_ = always;
}

void fx3_boot_loader::corrupt_readback(unsigned reads) {
    const std::lock_guard lock(mutex_);
    corrupt_reads_ = reads;
}

void fx3_boot_loader::never_end_erasing() {
    const std::lock_guard lock(mutex_);
    erases_for_ever_ = true;
}

byte_vector fx3_boot_loader::ram(std::uint32_t address, std::size_t count) const {
    const std::lock_guard lock(mutex_);
    return ram_.get(address, count);
}

byte_vector fx3_boot_loader::eeprom(unsigned select, std::uint16_t address, std::size_t count) const {
    const std::lock_guard lock(mutex_);
    return eeproms_.get(cell(select, address), count);
}

byte_vector fx3_boot_loader::spi(std::uint32_t address, std::size_t count) const {
    const std::lock_guard lock(mutex_);
    return spi_.get(address, count);
}

std::vector<std::uint32_t> fx3_boot_loader::programs_started() const {
    const std::lock_guard lock(mutex_);
    return programs_;
}

} // namespace jorvet::sim
