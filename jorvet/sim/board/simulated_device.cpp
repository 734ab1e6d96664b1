// Where the class of all simulated devices is at home.
#include "jorvet/sim/board/simulated_device.h"

namespace jorvet::sim {

Plug::~Plug() = default;

std::shared_ptr<Plug> Plug::successor() const {
    return nullptr;
}

} // namespace jorvet::sim
