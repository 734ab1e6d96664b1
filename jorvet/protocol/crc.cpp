// CRC by tables, sixteen bytes a step: table k advances a byte's contribution past k further bytes.
#include "jorvet/protocol/crc.h"

#include <array>
#include <cstdint>

namespace jorvet::protocol {

namespace {

constexpr std::size_t stride = 16;
using crc_tables = std::array<std::array<std::uint16_t, 256>, stride>;

constexpr std::uint16_t shift_byte(std::uint16_t crc) {
    for (int bit = 0; bit < 8; ++bit)
        crc = static_cast<std::uint16_t>((crc << 1) ^ ((crc & 0x8000) != 0 ? 0x1021 : 0));
    return crc;
}

constexpr crc_tables make_tables() {
    crc_tables tables{};
    for (unsigned byte = 0; byte < 256; ++byte) {
        tables[0][byte] = shift_byte(static_cast<std::uint16_t>(byte << 8));
        for (std::size_t k = 1; k < stride; ++k)
            tables[k][byte] = shift_byte(tables[k - 1][byte]);
    }
    return tables;
}

constexpr crc_tables tables = make_tables();

} // namespace

unsigned short crc_ccitt(const unsigned char* data, std::size_t size, unsigned short crc) {
    for (; size >= stride; data += stride, size -= stride) {
        unsigned next = tables[15][data[0] ^ (crc >> 8)] ^ tables[14][data[1] ^ (crc & 0xFF)];
        for (std::size_t k = 2; k < stride; ++k)
            next ^= tables[stride - 1 - k][data[k]];
        crc = static_cast<unsigned short>(next);
    }
    for (; size > 0; ++data, --size)
        crc = static_cast<unsigned short>((crc << 8) ^ tables[0][(crc >> 8) ^ *data]);
    return crc;
}

} // namespace jorvet::protocol
