// The text of a context loss, for the diagnostics writer.
#pragma once

#include <string>

#include "jorvet/core/receive_engine.h"

namespace jorvet::core {

// Lines ended by newlines, numbers in lower-case hexadecimal. A loss inside a frame that began in an earlier packet
// lists the packet before; any other lists what was examined since the last frame, under a heading.
std::string describe(const context_loss& loss);

} // namespace jorvet::core
