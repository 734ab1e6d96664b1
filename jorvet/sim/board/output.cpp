// Where the plan's destructor is defined; see the header for why.
#include "jorvet/sim/board/output.h"

namespace jorvet::sim {

reply_plan::~reply_plan() = default;

} // namespace jorvet::sim
