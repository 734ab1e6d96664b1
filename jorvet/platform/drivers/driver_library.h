// Where the library finds the D2XX functions of drivers/.
#pragma once

namespace jorvet::platform {

// Sees to it that who looks for the D2XX functions from now on finds those of drivers/. Done when the first bridge is
// plugged in. Throws std::runtime_error when a file that belongs to it is missing. Any thread.
void take_the_drivers_place();

} // namespace jorvet::platform
