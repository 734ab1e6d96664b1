// The table of requests, and how each kind of function in it is called.
#include "requests.h"

#include <algorithm>

namespace jorvet::tool {

namespace {

using byte = unsigned char;
using size = unsigned short;
template <typename... Arguments>
using function = unsigned int(JV_CALL*)(CJorvet*, Arguments..., bool);

// Each signature once: what it takes and returns, and how it is called.
constexpr request_shape shape(function<byte>) {
    return {1, false, false};
}
constexpr request_shape shape(function<byte, byte>) {
    return {2, false, false};
}
constexpr request_shape shape(function<byte, byte, byte>) {
    return {3, false, false};
}
constexpr request_shape shape(function<byte, byte, size, byte*>) {
    return {2, true, false};
}
constexpr request_shape shape(function<byte, byte, byte, size*, byte*>) {
    return {3, false, true};
}
constexpr request_shape shape(function<byte, byte, size, byte*, size*, byte*>) {
    return {2, true, true};
}

struct call {
    CJorvet* board;
    request_input in;
    bytes buffer;
    size length = 0;

    size data_length() const { return static_cast<size>(in.data.size()); }
    byte p(std::size_t number) const { return in.parameters[number - 1]; }

    unsigned int operator()(function<byte> f) const { return f(board, p(1), in.with_crc); }
    unsigned int operator()(function<byte, byte> f) const { return f(board, p(1), p(2), in.with_crc); }
    unsigned int operator()(function<byte, byte, byte> f) const { return f(board, p(1), p(2), p(3), in.with_crc); }
    unsigned int operator()(function<byte, byte, size, byte*> f) {
        return f(board, p(1), p(2), data_length(), in.data.data(), in.with_crc);
    }
    unsigned int operator()(function<byte, byte, byte, size*, byte*> f) {
        return f(board, p(1), p(2), p(3), &length, buffer.data(), in.with_crc);
    }
    unsigned int operator()(function<byte, byte, size, byte*, size*, byte*> f) {
        return f(board, p(1), p(2), data_length(), in.data.data(), &length, buffer.data(), in.with_crc);
    }
};

} // namespace

const std::vector<request>& requests() {
    static const std::vector<request> table{
        {"read-memory", "Have the board read its memory (only the status is handed back)", 0, "0x00 0x10 4",
         JVReadMemoryRq},
        {"read-by-id", "Read what an identifier holds", 0, "0x00 0x01", JVReadByIdRq},
        {"read-sn", "Have the board tell its serial number (only the status is handed back)", 0, "1", JVReadSnRq},
        {"read-last-sw", "Have the board tell its last status word (only the status is handed back)", 0, "",
         JVReadLastSwRq},
        {"read-error", "Have the board tell its errors (only the status is handed back)", 0, "", JVReadErrorRq},
        {"write-memory", "Write to the board's memory", 2, "0x00 0x10 --data 'DE AD BE EF'", JVWriteMemoryRq},
        {"write-by-id", "Write what an identifier holds", 2, "0x00 0x02 --data CAFE", JVWriteByIdRq},
        {"exec-by-id", "Run what an identifier stands for, with data or without", 2, "0x00 0x01 --data 01:02:03",
         JVExecByIdRq},
        {"reset", "Reset the board", 0, "", JVResetRq},
        {"set-mode", "Set the board's mode", 1, "1", JVSetModeRq},
        {"get-mode", "Ask for the board's mode", 0, "", JVGetModeRq, true},
    };
    return table;
}

const request& request_named(const std::string& name) {
    return *std::find_if(requests().begin(), requests().end(), [&](const request& r) { return r.name == name; });
}

request_shape shape_of(const request& r) {
    return std::visit([](auto function) { return shape(function); }, r.function);
}

unsigned int send(const request& r, CJorvet* board, request_input input, bytes* reply) {
    call to{board, std::move(input), bytes(max_data)};
    const unsigned int status = std::visit([&to](auto function) { return to(function); }, r.function);
    to.buffer.resize(is_reply(status) ? to.length : 0);
    *reply = std::move(to.buffer);
    return status;
}

} // namespace jorvet::tool
