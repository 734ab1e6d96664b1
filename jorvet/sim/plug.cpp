// Where the class of all simulated devices is at home.
#include "jorvet/sim/plug.h"

namespace jorvet::sim {

Plug::~Plug() = default;

std::shared_ptr<Plug> Plug::successor() const {
    return nullptr;
}

} // namespace jorvet::sim
