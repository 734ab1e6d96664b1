// The script language of sim.h: parses one line at a time. No thread, no lock.
#pragma once

#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "jorvet/sim/board/simulated_device.h"

namespace jorvet::sim {

// Says in a sentence why a line is not understood.
class script_error : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Parses a line into an action on a device; an empty line does nothing. Both throw script_error, the action when the
// line is not for that kind of device.
using script_action = std::function<void(simulated_device& plug)>;
script_action parse_script_line(std::string_view line);

// Help: every kind of line with what it does; lines end in '\n'.
const std::string& script_help();

} // namespace jorvet::sim
