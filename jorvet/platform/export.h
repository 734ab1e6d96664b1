// What leaves libjorvet-platform. On Windows the simulation's DLL holds the part of it that is built there; the D2XX
// functions leave that DLL by ordinal, as they leave the driver's.
#pragma once

#if defined(_WIN32)
#define JV_D2XX_API
#if defined(JORVET_SIM_BUILDING)
#define JV_PLATFORM_API __declspec(dllexport)
#else
#define JV_PLATFORM_API __declspec(dllimport)
#endif
#else
#define JV_PLATFORM_API __attribute__((visibility("default")))
#define JV_D2XX_API JV_PLATFORM_API
#endif
