// What the command line asks for.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "jorvet/api/jorvet_api.h"
#include "jorvet/cyusb/fx3_device.h"
#include "jorvet/sim/sim.h"
#include "requests.h"

namespace jorvet::tool {

// Wrong arguments: what() is one sentence that says what is wrong.
struct usage_error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct settings {
    std::string command; // the subcommand's name

    unsigned int link = JV_KIND_FTDI;
    bool link_given = false;
    unsigned char index = 0;
    std::optional<std::string> serial_number, place; // instead of the index
    std::uint32_t wait_ms = 0;                       // for such a device to come
    std::optional<unsigned short> timeout_ms;        // the library's own when absent

    bool json = false;
    bool trace = false;
    unsigned int simulated = 0;             // boards to plug in behind each kind of link
    jv_sim_speed speed = JV_SIM_HIGH_SPEED; // of the controllers among them
    std::vector<std::string> script;        // lines for the one at `index` of `link`

    request_input input; // of a request's subcommand

    struct {
        FX3_FWDWNLOAD_MEDIA_TYPE medium = FX3_MEDIUM_RAM;
        std::string file;
        bool verify = false;
        bool yes = false; // overwrites without asking
    } flash;

    std::optional<unsigned long> event_count, duration_ms; // where monitor ends
};

// "ftdi", "cypress"; "none" for anything else.
const char* link_name(unsigned int kind);

} // namespace jorvet::tool
