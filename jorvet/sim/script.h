// The script language of sim.h, line by line: what a line means, and what is wrong with it. No thread, no lock.
#pragma once

#include <functional>
#include <stdexcept>
#include <string_view>

#include "jorvet/sim/bridge.h"

namespace jorvet::sim {

// Why a line is not understood, in a sentence.
class ScriptError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// What a line does to a bridge when run; an empty line does nothing. Throws ScriptError.
using ScriptAction = std::function<void(Bridge& bridge)>;
ScriptAction parse_script_line(std::string_view line);

} // namespace jorvet::sim
