// A scripted stand-in for the part of win32.h that the device layer uses, linked in place of the platform library. It
// logs each request and wait, answers from a strict script or a simulated device, and completes pending requests when
// told. Single-threaded; nothing sleeps: a wait that nothing would end fails the test. Also descriptors as bytes.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "jorvet/platform/win32.h"

namespace fake {

using Bytes = std::vector<BYTE>;
using Action = std::function<void()>;

struct Request {
    DWORD code;
    Bytes in;
    DWORD room; // for output
};

// What the driver does with a request: `data` goes to offset `at` of the output, the statuses into the request block.
struct Reply {
    Bytes data;
    DWORD error = 0;
    std::size_t at = 0;
    DWORD usbd_status = 0;
    DWORD nt_status = 0;
    bool later = false;      // pending until complete()
    DWORD bytes = DWORD(-1); // the byte count; without it the output up to the data's end
    Action before_return = {};
};

struct Platform {
    // "code input>room" in hexadecimal but for the room, "+n" for n zeros, "~" behind one that may complete later; "get
    // wValue wIndex length" for a read of a descriptor; "wait milliseconds".
    std::vector<std::string> log;
    std::deque<Reply> script;                    // the answers in order, or
    std::function<Reply(const Request&)> device; // what answers once there is no script
    std::deque<Action> waits;                    // run by waits on an event that is not signalled, in order
    std::vector<std::string> paths;              // the devices of the class
    std::function<DWORD(DWORD)> unreadable;      // the error of a member of the class, 0 for none
    std::map<std::string, DWORD> failing;        // functions that fail, with their error
    std::set<void*> objects;                     // handles, sets and registrations that are open
    std::vector<Bytes> filters;                  // of the registrations

    void complete(const Reply& reply); // ends the pending request
    std::string take_log();            // joined by "; "
};

// Gives every test a fresh platform, and checks that nothing is left over.
struct Test : ::testing::Test {
    Test();
    ~Test() override;
    static Platform os;
};

std::string hex(const Bytes& bytes);

inline Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}
inline Bytes with(Bytes bytes, std::size_t at, int value) {
    bytes.at(at) = BYTE(value);
    return bytes;
}
inline Bytes interface_of(int number, int alternate, int endpoints) {
    return {9, 4, BYTE(number), BYTE(alternate), BYTE(endpoints), 0xFF, 0, 0, 0};
}
inline Bytes endpoint(int address, int attributes, int max_packet = 512) {
    return {7, 5, BYTE(address), BYTE(attributes), BYTE(max_packet), BYTE(max_packet >> 8), 0};
}
inline Bytes companion(int burst) {
    return {6, 0x30, BYTE(burst), 0, 0, 0};
}
inline Bytes configuration(const Bytes& rest, int name = 0) {
    const std::size_t total = 9 + rest.size();
    return Bytes{9, 2, BYTE(total), BYTE(total >> 8), 2, 1, BYTE(name), 0x80, 50} + rest;
}
inline Bytes bos(int capabilities, const Bytes& rest) {
    return Bytes{5, 0x0F, BYTE(5 + rest.size()), 0, BYTE(capabilities)} + rest;
}
inline const Bytes usb20_extension{7, 0x10, 2, 6, 0, 0, 0};
inline const Bytes super_speed{10, 0x10, 3, 0, 0x0E, 0, 1, 10, 0xFF, 7};

} // namespace fake
