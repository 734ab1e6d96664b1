// The boot loader of a simulated USB controller without firmware, which takes vendor requests, and the memories behind
// it. A controller calls it as its control handler; it knows nothing of the controller. Any thread may call anything.
//
//   request            to the device                               from the device
//   0xA0, address      writes RAM; without data: starts a program  reads RAM
//   0xBA / 0xBB, *     writes an EEPROM                            reads an EEPROM (0xBB)
//   0xC2 / 0xC3, page  programs the SPI flash                      reads the SPI flash (0xC3)
//   0xC4, sector       erases it, wValue 1                         1 byte: 1 while the erasing goes on, else 0
//
// An address has its low half in wValue and its high half in wIndex; pages of 256 bytes and sectors of 64 KiB are in
// wIndex, and wValue is 0. (*) wValue selects one of eight EEPROMs, wIndex is the address in it; addresses wrap at its
// end. The loader writes an EEPROM in pieces of one page, and the EEPROM stays within the page: data that do not begin
// on a page boundary wrap in each page. Programming can only clear bits. While a flash is erasing it answers only the
// request for its progress. Requests that are out of range, or not in the table, are stalled.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <vector>

#include "jorvet/base/export.h"
#include "jorvet/ports/ports.h"
#include "jorvet/sim/support/bytes.h"

namespace jorvet::sim {

// Bytes at 32-bit addresses; those never written have one value.
class JV_SIM_API sparse_memory {
  public:
    explicit sparse_memory(std::uint8_t untouched) : untouched_(untouched) {}
    std::uint8_t get(std::uint32_t address) const;
    std::uint8_t& at(std::uint32_t address);
    byte_vector get(std::uint32_t address, std::size_t count) const; // wraps to 0 after the last address

  private:
    std::map<std::uint32_t, byte_vector> blocks_; // by the high half of the address
    std::uint8_t untouched_;
};

struct boot_loader_options {
    std::size_t eeprom_size = 65536; // bytes of each; this and the next are powers of two
    std::size_t eeprom_page = 128;
    std::size_t spi_size = std::size_t{4} << 20;
    unsigned erase_polls = 3; // how often a flash says that it is still erasing
};

class JV_SIM_API fx3_boot_loader {
  public:
    static constexpr unsigned for_ever = 0xFFFFFFFF;

    explicit fx3_boot_loader(const boot_loader_options& options = {});

    // A control_handler: returns the data for the host, or nothing for a stall.
    std::optional<byte_vector> answer(const ports::usb_setup& setup, const byte_vector& data_to_device);

    // The nth vendor request from now (1: the next) is stalled, and all after it with `always`.
    void fail(unsigned nth, bool always = false);
    // Wrong data in the next `reads` answers with memory in them.
    void corrupt_readback(unsigned reads = for_ever);
    void never_end_erasing();

    // For tests.
    byte_vector ram(std::uint32_t address, std::size_t count) const;
    byte_vector eeprom(unsigned select, std::uint16_t address, std::size_t count) const; // EEPROMs lie 64 KiB apart
    byte_vector spi(std::uint32_t address, std::size_t count) const;
    std::vector<std::uint32_t> programs_started() const; // where, in order

  private:
    bool fails();
    std::optional<byte_vector> take(const ports::usb_setup& setup, const byte_vector& data);
    std::optional<byte_vector> give(const ports::usb_setup& setup);
    bool write_ram(std::uint32_t address, const byte_vector& data);
    bool write_eeprom(const ports::usb_setup& setup, const byte_vector& data);
    bool program_spi(const ports::usb_setup& setup, const byte_vector& data);
    bool erase_spi(const ports::usb_setup& setup);
    byte_vector read_eeprom(const ports::usb_setup& setup) const;
    byte_vector erase_status();
    bool spi_has(const ports::usb_setup& setup, std::size_t unit, std::size_t count) const;
    byte_vector corrupted(byte_vector read);

    mutable std::mutex mutex_;
    const boot_loader_options options_;
    sparse_memory ram_{0};
    sparse_memory eeproms_{0xFF};
    sparse_memory spi_{0xFF};
    std::vector<std::uint32_t> programs_;
    unsigned busy_polls_ = 0; // of the erasure in progress
    bool erases_for_ever_ = false;
    unsigned fails_in_ = 0; // 0: not at all
    bool fails_always_ = false;
    unsigned corrupt_reads_ = 0;
};

} // namespace jorvet::sim
