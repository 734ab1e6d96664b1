// The script language of sim.h, line by line: what a line means, and what is wrong with it. No thread, no lock.
#pragma once

#include <functional>
#include <stdexcept>
#include <string_view>

#include "jorvet/sim/board/simulated_device.h"

namespace jorvet::sim {

// Why a line is not understood, in a sentence.
class ScriptError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// What a line does to a device when run; an empty line does nothing. Both throw ScriptError, the action when the line
// is not for that kind of device.
using ScriptAction = std::function<void(Plug& plug)>;
ScriptAction parse_script_line(std::string_view line);

} // namespace jorvet::sim
