// Building the request frames that the host sends, and the table of requests.
//
//   offset  size  field
//   0       1     start byte: 0x91 with a CRC, else 0x90
//   1       1     command byte
//   2       3     parameter bytes, 0 where the request has fewer
//   5       2     data length N, big-endian
//   7       N     data
//   7+N     2     only with a CRC R over all bytes before: bits 4 to 11 of R, then bits 0 to 7 of R
#pragma once

#include <vector>

#include "jorvet/base/status.h"

namespace jorvet::protocol {

// What distinguishes one request from another, apart from its arguments.
struct request_kind {
    unsigned char command;
    unsigned int timeout_status; // what the request returns when no reply comes in time
};

namespace requests {
inline constexpr request_kind read_memory{0x10, JV_ERR_TIMEOUT_READ_MEMORY};
inline constexpr request_kind read_by_id{0x11, JV_ERR_TIMEOUT_READ_BY_ID};
inline constexpr request_kind read_sn{0x15, JV_ERR_TIMEOUT_READ_SN};
inline constexpr request_kind read_last_sw{0x16, JV_ERR_TIMEOUT_READ_LAST_SW};
inline constexpr request_kind read_error{0x17, JV_ERR_TIMEOUT_READ_ERROR};
inline constexpr request_kind write_memory{0x20, JV_ERR_TIMEOUT_WRITE_MEMORY};
inline constexpr request_kind write_by_id{0x21, JV_ERR_TIMEOUT_WRITE_BY_ID};
inline constexpr request_kind exec_by_id{0x40, JV_ERR_TIMEOUT_EXEC_BY_ID};
inline constexpr request_kind reset{0x30, JV_ERR_TIMEOUT_RESET};
inline constexpr request_kind set_mode{0x31, JV_ERR_TIMEOUT_SET_MODE};
inline constexpr request_kind get_mode{0x32, JV_ERR_TIMEOUT_GET_MODE};

inline constexpr const request_kind* all[] = {&read_memory, &read_by_id,   &read_sn,     &read_last_sw,
                                              &read_error,  &write_memory, &write_by_id, &exec_by_id,
                                              &reset,       &set_mode,     &get_mode};
} // namespace requests

// One request to be sent. `data` has `length` bytes, and is not read when `length` is 0.
struct request {
    const request_kind& kind;
    unsigned char parameters[3] = {};
    const unsigned char* data = nullptr;
    unsigned short length = 0;
};

// The bytes of the frame, in one allocation.
std::vector<unsigned char> build_frame(const request& rq, bool with_crc);

} // namespace jorvet::protocol
