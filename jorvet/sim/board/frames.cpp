// Building the board's frames.
#include "jorvet/sim/board/frames.h"

#include <algorithm>

namespace jorvet::sim {

namespace {

constexpr std::size_t most_data = 0xFFFF;

void append_word(Bytes& out, std::size_t word) {
    out.push_back(static_cast<std::uint8_t>(word >> 8));
    out.push_back(static_cast<std::uint8_t>(word));
}

// What replies and events have in common behind their first fields; the frame begins at `begin`.
void append_rest(Bytes& out, std::size_t begin, std::uint16_t status, const Bytes& data, Trailer trailer) {
    const std::size_t length = std::min(data.size(), most_data);
    append_word(out, status);
    append_word(out, length);
    out.insert(out.end(), data.data(), data.data() + length);
    if (trailer != Trailer::none)
        append_word(out, crc16(&out[begin], out.size() - begin) ^ (trailer == Trailer::wrong_crc ? 1u : 0u));
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

void append_reply(Bytes& out, std::uint16_t status, const Bytes& data, Trailer trailer) {
    const std::size_t begin = out.size();
    out.push_back(trailer == Trailer::none ? 0x80 : 0x81);
    append_rest(out, begin, status, data, trailer);
}

void append_event(Bytes& out, const Event& event, std::uint8_t sequence) {
    const std::size_t begin = out.size();
    out.push_back(event.with_crc ? 0x41 : 0x40);
    out.push_back(event.id);
    out.push_back(sequence);
    append_rest(out, begin, event.status, event.data, event.with_crc ? Trailer::crc : Trailer::none);
}

} // namespace jorvet::sim
