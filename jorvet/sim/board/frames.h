// The frames that the board sends, and their CRC. No thread, no lock.
#pragma once

#include "jorvet/sim/board/output.h"

namespace jorvet::sim {

// CRC-16 with polynomial 0x1021 and initial value 0xFFFF, most significant bit first, bit by bit.
std::uint16_t crc16(const std::uint8_t* bytes, std::size_t count);

enum class crc_trailer { none, crc, wrong_crc, shifted_crc }; // shifted: see reply_plan

// Append a whole frame to `out`. Fields and CRC are big-endian; data end after 65,535 bytes.
void append_reply(byte_vector& out, std::uint16_t status, const byte_vector& data, crc_trailer trailer);
void append_event(byte_vector& out, const board_event& event, std::uint8_t sequence);

} // namespace jorvet::sim
