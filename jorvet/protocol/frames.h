// The frames on the link: their layouts, and the records that hold received ones. Nothing here has behaviour.
//
// Every frame is start byte, header, data, and a CRC of two bytes when bit 0 of the start byte is set; the length field
// of the header counts the data alone. Two-byte fields are big-endian, except the CRC trailer of requests
// (request_frame.h).
#pragma once

#include <cstddef>
#include <vector>

namespace jorvet::protocol {

inline constexpr unsigned char start_request = 0x90; // from the host
inline constexpr unsigned char start_reply = 0x80;   // from the board, in answer to a request
inline constexpr unsigned char start_event = 0x40;   // from the board, unasked
inline constexpr unsigned char with_crc_bit = 0x01;
inline constexpr unsigned char separator = 0xFF; // may follow a frame of the board; carries nothing

inline constexpr std::size_t crc_size = 2;
inline constexpr unsigned short no_crc = 0xEEEE; // `crc` of a record whose frame had none

inline constexpr unsigned short board_success = 0xA000; // status word

constexpr bool is_event_start(unsigned char byte) {
    return (byte & ~with_crc_bit) == start_event;
}
constexpr bool is_board_start(unsigned char byte) {
    return is_event_start(byte) || (byte & ~with_crc_bit) == start_reply;
}

// Offsets of the fields of a received frame from its start byte. The header ends with the status word and the data
// length, two bytes each; in an event the identifier and the sequence byte come before them.
constexpr std::size_t event_id = 1;
constexpr std::size_t event_seq = 2;
constexpr std::size_t event_header_size = 7;
constexpr std::size_t reply_header_size = 5;

constexpr std::size_t header_size(unsigned char start) {
    return is_event_start(start) ? event_header_size : reply_header_size;
}

constexpr unsigned short word_at(const unsigned char* bytes) {
    return static_cast<unsigned short>((bytes[0] << 8) + bytes[1]);
}

// The fields of a frame whose header is complete.
constexpr unsigned short status_of(const unsigned char* frame) {
    return word_at(frame + header_size(frame[0]) - 4);
}
constexpr unsigned short length_of(const unsigned char* frame) {
    return word_at(frame + header_size(frame[0]) - 2);
}
constexpr std::size_t frame_size(const unsigned char* frame) {
    return header_size(frame[0]) + length_of(frame) + ((frame[0] & with_crc_bit) != 0 ? crc_size : 0);
}

} // namespace jorvet::protocol

namespace IProtocol {

// A received reply: start byte 0x80 or 0x81, status word, data length, the data, and the CRC as received (0xEEEE for a
// frame without). A default record, all 0 and no data, stands for "none".
struct REPLY_FRAME {
    unsigned char type = 0;
    unsigned short status = 0;
    unsigned short length = 0;
    std::vector<unsigned char> data;
    unsigned short crc = 0;
};

// A received event: start byte 0x40 or 0x41, identifier, sequence byte (one more than the event before, modulo 256),
// and the rest as in a reply.
struct EVENT_FRAME {
    unsigned char type = 0;
    unsigned char id = 0;
    unsigned char seq = 0;
    unsigned short status = 0;
    unsigned short length = 0;
    std::vector<unsigned char> data;
    unsigned short crc = 0;
};

} // namespace IProtocol
