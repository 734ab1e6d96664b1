// Byte streams and what must come of them: one table for the engine's tests and for the fuzz corpus.
#pragma once

#include <string>
#include <vector>

#include "jorvet/base/read_text.h"

namespace jorvet::testing {

struct receive_vector {
    const char* name;
    std::vector<const char*> packets; // hexadecimal
    // In order: "R type status data crc", "E type id seq status data crc +lost", "L" for a context loss, "stopped".
    const char* outcome;
};

inline const std::vector<receive_vector> receive_vectors{
    {"reply_in_one_packet", {"80 A000 0002 1234"}, "R 80 a000 1234 eeee"},
    {"reply_in_two_packets", {"80A000", "0002 1234"}, "R 80 a000 1234 eeee"},
    {"reply_byte_by_byte", {"80", "A0", "00", "", "00", "02", "12", "34"}, "R 80 a000 1234 eeee"},
    {"reply_with_crc_before_event",
     {"81 A000 0000 1234 40 01 00 A000 0000"},
     "R 81 a000 - 1234; E 40 01 00 a000 - eeee +0"},
    {"reply_with_crc_cut_in_its_crc", {"81 2001 0001 07 12", "34"}, "R 81 2001 07 1234"},
    {"separator_is_consumed", {"80 A000 0000 FF 40 01 00 A000 0000 FF"}, "R 80 a000 - eeee; E 40 01 00 a000 - eeee +0"},
    {"second_separator_is_stray", {"80 A000 0000 FF FF"}, "R 80 a000 - eeee; L; stopped"},
    {"frame_before_stray_byte_is_discarded", {"80 A000 0000 00 00 00 00"}, "L; stopped"},
    {"start_bytes_inside_data_are_data", {"80 A000 0004 41 81 40 80"}, "R 80 a000 41814080 eeee"},
    {"events_in_sequence",
     {"40 02 00 A000 0000 40 02 01 A000 0000 41 03 02 8001 0001 AA 1234"},
     "E 40 02 00 a000 - eeee +0; E 40 02 01 a000 - eeee +0; E 41 03 02 8001 aa 1234 +0"},
    {"first_event_late", {"40 01 05 A000 0000"}, "E 40 01 05 a000 - eeee +4"},
    {"sequence_wraps_repeats_and_steps_back",
     {"40 01 FF A000 0000", "40 01 00 A000 0000", "40 01 03 A000 0000", "40 01 03 A000 0000", "40 01 01 A000 0000"},
     "E 40 01 ff a000 - eeee +254; E 40 01 00 a000 - eeee +0; E 40 01 03 a000 - eeee +2; E 40 01 03 a000 - eeee +0; "
     "E 40 01 01 a000 - eeee +253"},
    {"stray_byte_then_event", {"00 40 01 07 A000 0000 FF"}, "L; E 40 01 07 a000 - eeee +6"},
    {"fresh_start_needs_eight_bytes", {"00 40 01 07 A000 0000"}, "L; stopped"},
    {"fresh_start_needs_identifier_one", {"00 40 02 07 A000 0000 FF"}, "L; stopped"},
    {"fresh_start_needs_a_known_status", {"00 41 01 07 A001 0000 FF FF FF"}, "L; stopped"},
    {"fresh_start_with_crc_and_status_8001", {"00 41 01 01 8001 0000 ABCD"}, "L; E 41 01 01 8001 - abcd +0"},
    {"replies_are_no_fresh_start", {"00 80 A000 0000 FF FF FF"}, "L; stopped"},
    {"search_lands_inside_the_lost_frame",
     {"80 A000 0008 40 01 01 A000 0000 FF 00 00"},
     "L; E 40 01 01 a000 - eeee +0; L; stopped"},
    {"search_reaches_into_the_packet_before",
     {"80 A000 0008 40 01 01 A000", "0000 FF 00 80 A000 0000"},
     "L; E 40 01 01 a000 - eeee +0; L; stopped"},
    {"stray_byte_after_a_frame_over_two_packets",
     {"80 A000", "0000", "00 40 01 02 A000 0000 FF"},
     "R 80 a000 - eeee; L; E 40 01 02 a000 - eeee +1"},
    {"recovers_again_and_again",
     {"00 40 01 01 A000 0000 00 40 01 02 A000 0000 00 40 01 03 A000 0000 FF", "80 A000 0000"},
     "L; L; L; E 40 01 03 a000 - eeee +2; R 80 a000 - eeee"},
    {"fresh_start_runs_into_the_next_packet",
     {"00 40 01 01 A000 0003 AA", "BB CC 80 A000 0000"},
     "L; E 40 01 01 a000 aabbcc eeee +0; R 80 a000 - eeee"},
    {"loses_twice_across_packets",
     {"80 A000 0009 40 01 01 A000", "0000 00 00 00 00 40 01 02 A000 0000 FF", "FF 80 A000 0000"},
     "L; L; E 40 01 02 a000 - eeee +1; L; stopped"},
    {"nothing_after_a_stop", {"00", "80 A000 0000"}, "L; stopped"},
};

inline std::vector<unsigned char> from_hex(const std::string& text) {
    return read_bytes(text);
}

// Appends an event of the board, without CRC and with room for `length` bytes of data, which follow.
inline void append_event_head(std::vector<unsigned char>& bytes, unsigned id, std::size_t seq, std::size_t length) {
    for (const std::size_t byte :
         {std::size_t{0x40}, std::size_t{id}, seq, std::size_t{0xA0}, std::size_t{0}, length >> 8, length})
        bytes.push_back(static_cast<unsigned char>(byte));
}

} // namespace jorvet::testing
