// What leaves libjorvet-sim.
#pragma once

#if defined(__GNUC__) && !defined(__MINGW32__)
#define JV_SIM_API __attribute__((visibility("default")))
#else
#define JV_SIM_API
#endif
