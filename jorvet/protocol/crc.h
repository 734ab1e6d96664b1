// The CRC of the frames: CRC-16/CCITT-FALSE (polynomial 0x1021, initial value 0xFFFF, most significant bit first,
// nothing reflected, no final XOR; 0x29B1 over the ASCII digits "123456789").
#pragma once

#include <cstddef>
#include <vector>

namespace jorvet::protocol {

inline constexpr unsigned short crc_initial = 0xFFFF;

// The CRC of `size` bytes at `data`, continuing from `crc`, the CRC of the bytes before them.
unsigned short crc_ccitt(const unsigned char* data, std::size_t size, unsigned short crc = crc_initial);

} // namespace jorvet::protocol

namespace IProtocol {

static inline unsigned short getCRC_CCITT(const std::vector<unsigned char>& bytes) {
    return jorvet::protocol::crc_ccitt(bytes.data(), bytes.size());
}

} // namespace IProtocol
