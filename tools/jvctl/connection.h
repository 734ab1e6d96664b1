// An instance of the library for the length of a command.
#pragma once

#include <memory>

#include "bench.h"
#include "jorvet/core/jorvet.h"
#include "settings.h"

namespace jorvet::tool {

struct close_instance {
    void operator()(CJorvet* instance) const { JVCloseInstance(instance); }
};
using instance = std::unique_ptr<CJorvet, close_instance>;

// An instance for the chosen kind of link, with the chosen reply time-out; not connected. Throws std::runtime_error
// when resources cannot be allocated.
instance make_instance(const settings& chosen);

// Opens the chosen device and then runs the chosen script lines. Returns the status of opening; throws usage_error for
// a script line that is not understood.
unsigned int open_device(CJorvet* board, const settings& chosen, bench& boards);

} // namespace jorvet::tool
