// A request frame as the simulated board understood it.
#pragma once

#include "jorvet/sim/support/bytes.h"

namespace jorvet::sim {

struct board_request {
    std::uint8_t command = 0;
    std::uint8_t parameters[3] = {};
    byte_vector data;
    bool with_crc = false;
    bool crc_matches = true; // true without a CRC, too
};

} // namespace jorvet::sim
