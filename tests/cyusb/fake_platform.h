// A scripted stand-in for the part of win32.h that the device layer uses, linked in place of the platform library. It
// logs each request and wait, answers from a strict script or a simulated device, and completes pending requests when
// told. Single-threaded; nothing sleeps: a wait that nothing would end fails the test.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "jorvet/system/win32.h"
#include "tests/cyusb/descriptors.h"

namespace fake {

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
    // "code input>room" in hexadecimal but for the room, "+n" for n zeros; "get
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

} // namespace fake
