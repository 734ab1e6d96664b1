// Replaces the D2XX driver's library on Windows by the simulated bridges.
#pragma once

namespace jorvet::sim {

// From now on, whoever looks up the D2XX functions in this process gets those over the simulated bridges. Called
// before a bridge is plugged in. Throws std::runtime_error when simulation\FTD2XX.dll is missing. Any thread. Elsewhere
// libjorvet finds no other D2XX functions, and there is nothing to do.
#if defined(_WIN32)
void take_the_drivers_place();
#else
inline void take_the_drivers_place() {}
#endif

} // namespace jorvet::sim
