// What leaves libjorvet-sim.
#pragma once

#if !defined(_WIN32)
#define JV_SIM_API __attribute__((visibility("default")))
#elif defined(JORVET_SIM_BUILDING)
#define JV_SIM_API __declspec(dllexport)
#else
#define JV_SIM_API __declspec(dllimport)
#endif
