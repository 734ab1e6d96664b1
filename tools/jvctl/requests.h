// The requests as one table: their names, what they take and return, and the library's function behind each.
#pragma once

#include <array>
#include <string>
#include <variant>
#include <vector>

#include "jorvet/api/jorvet_api.h"
#include "text.h"

namespace jorvet::tool {

struct request_input {
    std::array<unsigned char, 3> parameters{};
    bytes data;
    bool with_crc = false;
};

// What a request takes and returns, derived from the signature of its function.
struct request_shape {
    unsigned int parameters; // of p1, p2, p3
    bool takes_data;
    bool brings_data;
};

using request_function = std::variant< //
    unsigned int(JV_CALL*)(CJorvet*, unsigned char, bool),
    unsigned int(JV_CALL*)(CJorvet*, unsigned char, unsigned char, bool),
    unsigned int(JV_CALL*)(CJorvet*, unsigned char, unsigned char, unsigned char, bool),
    unsigned int(JV_CALL*)(CJorvet*, unsigned char, unsigned char, unsigned short, unsigned char*, bool),
    unsigned int(JV_CALL*)(CJorvet*, unsigned char, unsigned char, unsigned char, unsigned short*, unsigned char*,
                           bool),
    unsigned int(JV_CALL*)(CJorvet*, unsigned char, unsigned char, unsigned short, unsigned char*, unsigned short*,
                           unsigned char*, bool)>;

struct request {
    const char* name;
    const char* summary;
    unsigned int required; // number of parameters that must be given; the others are 0 when left out
    const char* example;   // its arguments
    request_function function;
    bool teaches_mode = false; // the library learns the board's mode from the reply
};

const std::vector<request>& requests();
// The one of that name, which must exist.
const request& request_named(const std::string& name);

request_shape shape_of(const request& r);

// Issues it and returns its status; `*reply` becomes the data of the reply, empty when none came. Blocks as
// the request does.
unsigned int send(const request& r, CJorvet* board, request_input input, bytes* reply);

} // namespace jorvet::tool
