// Where the platform is a library of ours, the D2XX functions of drivers/ are the only ones, and in place from the
// start.
#include "jorvet/platform/drivers/driver_library.h"

namespace jorvet::platform {

void take_the_drivers_place() {}

} // namespace jorvet::platform
