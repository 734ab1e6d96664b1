// Cutting and checking request frames.
#include "jorvet/sim/board/request_parser.h"

#include <algorithm>

#include "jorvet/sim/board/frames.h"

namespace jorvet::sim {

namespace {

constexpr std::uint8_t start = 0x90;
constexpr std::uint8_t start_with_crc = 0x91;
constexpr std::size_t header_size = 7;

bool starts_request(std::uint8_t byte) {
    return byte == start || byte == start_with_crc;
}

// The trailer is not the CRC in two bytes: its first byte holds bits 4 to 11.
bool trailer_matches(const byte_vector& frame) {
    const std::size_t covered = frame.size() - 2;
    const unsigned crc = crc16(frame.data(), covered);
    return frame[covered] == ((crc >> 4) & 0xFF) && frame[covered + 1] == (crc & 0xFF);
}

} // namespace

const board_request* request_parser::next(const std::uint8_t*& bytes, std::size_t& count) {
    while (count > 0) {
        std::size_t take = 1;
        if (frame_.empty() && !starts_request(*bytes)) {
            ++stray_bytes_;
        } else {
            take = std::min(count, frame_size() - frame_.size());
            frame_.insert(frame_.end(), bytes, bytes + take);
        }
        bytes += take;
        count -= take;
        if (frame_.size() >= header_size && frame_.size() == frame_size()) {
            decode();
            frame_.clear();
            return &request_;
        }
    }
    return nullptr;
}

std::size_t request_parser::frame_size() const {
    if (frame_.size() < header_size)
        return header_size;
    const std::size_t data = static_cast<std::size_t>(frame_[5] << 8 | frame_[6]);
    return header_size + data + (frame_[0] == start_with_crc ? 2 : 0);
}

void request_parser::decode() {
    request_.with_crc = frame_[0] == start_with_crc;
    request_.crc_matches = !request_.with_crc || trailer_matches(frame_);
    request_.command = frame_[1];
    std::copy_n(&frame_[2], 3, request_.parameters);
    request_.data.assign(frame_.begin() + header_size, frame_.end() - (request_.with_crc ? 2 : 0));
}

} // namespace jorvet::sim
