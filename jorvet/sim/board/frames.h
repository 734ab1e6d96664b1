// The frames that the board sends, and their CRC. No thread, no lock.
#pragma once

#include "jorvet/sim/board/board.h"

namespace jorvet::sim {

// CRC-16 with polynomial 0x1021 and initial value 0xFFFF, most significant bit first, bit by bit.
std::uint16_t crc16(const std::uint8_t* bytes, std::size_t count);

enum class Trailer { none, crc, wrong_crc };

// Append a whole frame to `out`. Fields and CRC are big-endian; data end after 65,535 bytes.
void append_reply(Bytes& out, std::uint16_t status, const Bytes& data, Trailer trailer);
void append_event(Bytes& out, const Event& event, std::uint8_t sequence);

} // namespace jorvet::sim
