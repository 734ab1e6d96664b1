// The script language of sim.h, line by line: what a line means, and what is wrong with it. No thread, no lock.
#pragma once

#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "jorvet/sim/board/simulated_device.h"

namespace jorvet::sim {

// Why a line is not understood, in a sentence.
class script_error : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// What a line does to a device when run; an empty line does nothing. Both throw script_error, the action when the line
// is not for that kind of device.
using script_action = std::function<void(simulated_device& plug)>;
script_action parse_script_line(std::string_view line);

// Every kind of line with what it does, for people; lines end in '\n'.
const std::string& script_help();

} // namespace jorvet::sim
