// Building the board's frames.
#include "jorvet/sim/board/frames.h"

#include <algorithm>

namespace jorvet::sim {

namespace {

constexpr std::size_t max_data = 0xFFFF;

void append_word(byte_vector& out, std::size_t word) {
    out.push_back(static_cast<std::uint8_t>(word >> 8));
    out.push_back(static_cast<std::uint8_t>(word));
}

std::uint16_t crc_of(const std::uint8_t* frame, std::size_t size, crc_trailer trailer) {
    if (trailer != crc_trailer::shifted_crc)
        return crc16(frame, size) ^ (trailer == crc_trailer::wrong_crc ? 1u : 0u);
    byte_vector shifted(frame, frame + size);
    for (const std::size_t high : {1u, 3u})
        shifted[high] = static_cast<std::uint8_t>(frame[high] << 4 | frame[high + 1] >> 4);
    return crc16(shifted.data(), size);
}

// Appends the fields that replies and events have in common; the frame begins at `begin`.
void append_rest(byte_vector& out, std::size_t begin, std::uint16_t status, const byte_vector& data,
                 crc_trailer trailer) {
    const std::size_t length = std::min(data.size(), max_data);
    append_word(out, status);
    append_word(out, length);
    out.insert(out.end(), data.data(), data.data() + length);
    if (trailer != crc_trailer::none)
        append_word(out, crc_of(&out[begin], out.size() - begin, trailer));
}

} // namespace

std::uint16_t crc16(const std::uint8_t* bytes, std::size_t count) {
    unsigned crc = 0xFFFF;
    for (std::size_t i = 0; i < count; ++i) {
        crc ^= static_cast<unsigned>(bytes[i]) << 8;
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc << 1) ^ ((crc & 0x8000) != 0 ? 0x11021 : 0);
    }
    return static_cast<std::uint16_t>(crc);
}

void append_reply(byte_vector& out, std::uint16_t status, const byte_vector& data, crc_trailer trailer) {
    const std::size_t begin = out.size();
    out.push_back(trailer == crc_trailer::none ? 0x80 : 0x81);
    append_rest(out, begin, status, data, trailer);
}

void append_event(byte_vector& out, const board_event& event, std::uint8_t sequence) {
    const std::size_t begin = out.size();
    out.push_back(event.with_crc ? 0x41 : 0x40);
    out.push_back(event.id);
    out.push_back(sequence);
    append_rest(out, begin, event.status, event.data, event.with_crc ? crc_trailer::crc : crc_trailer::none);
}

} // namespace jorvet::sim
