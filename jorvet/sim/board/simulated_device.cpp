// Defines the virtual functions of the base class of simulated devices.
#include "jorvet/sim/board/simulated_device.h"

namespace jorvet::sim {

simulated_device::~simulated_device() = default;

std::shared_ptr<simulated_device> simulated_device::successor() const {
    return nullptr;
}

} // namespace jorvet::sim
