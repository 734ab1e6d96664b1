// The bytes that carry a request.
#include "jorvet/protocol/request_frame.h"

#include "jorvet/protocol/crc.h"
#include "jorvet/protocol/frames.h"

namespace jorvet::protocol {

namespace {
constexpr std::size_t request_header_size = 7;

unsigned char low_byte(unsigned value) {
    return static_cast<unsigned char>(value & 0xFF);
}
} // namespace

std::vector<unsigned char> build_frame(const request& rq, bool with_crc) {
    std::vector<unsigned char> frame;
    frame.reserve(request_header_size + rq.length + crc_size);
    frame.push_back(with_crc ? start_request | with_crc_bit : start_request);
    frame.push_back(rq.kind.command);
    frame.insert(frame.end(), rq.parameters, rq.parameters + 3);
    frame.push_back(low_byte(rq.length >> 8));
    frame.push_back(low_byte(rq.length));
    if (rq.length > 0)
        frame.insert(frame.end(), rq.data, rq.data + rq.length);
    if (with_crc) {
        const unsigned crc = crc_ccitt(frame.data(), frame.size());
        frame.push_back(low_byte(crc >> 4)); // the board expects bits 4 to 11 here, not the high byte
        frame.push_back(low_byte(crc));
    }
    return frame;
}

} // namespace jorvet::protocol
