// The place of the D2XX driver's library on Windows, which simulated bridges take.
#pragma once

namespace jorvet::sim {

// Sees to it that whoever looks for the D2XX functions from now on finds those over the simulated bridges. Called
// before a bridge is plugged in. Throws std::runtime_error when simulation\FTD2XX.dll is missing. Any thread. Elsewhere
// libjorvet finds no other D2XX functions, and there is nothing to do.
#if defined(_WIN32)
void take_the_drivers_place();
#else
inline void take_the_drivers_place() {}
#endif

} // namespace jorvet::sim
