/* Export macros. JV_API marks what applications may link against in libjorvet, JV_PLATFORM_API and JV_SIM_API what they
 * may link against in libjorvet-platform and libjorvet-sim. Of the classes that JV_API marks, libjorvet exports just
 * the members in cmake/exports.txt, except when Visual C++ builds it, which exports marked classes whole. JV_CALL is
 * the calling convention of the C functions. */
#ifndef JORVET_BASE_EXPORT_H
#define JORVET_BASE_EXPORT_H

#if defined(_WIN32)
#define JV_CALL __cdecl
#if defined(JORVET_STATIC) || (defined(JORVET_BUILDING) && defined(__MINGW32__))
#define JV_API
#elif defined(JORVET_BUILDING)
#define JV_API __declspec(dllexport)
#else
#define JV_API __declspec(dllimport)
#endif
/* The simulation's DLL holds the part of the platform that Windows does not have. The D2XX functions leave it by
 * ordinal, as they leave the driver's DLL. JV_FACE_API marks what libjorvet has within itself on Windows. */
#if defined(JORVET_SIM_BUILDING)
#define JV_SIM_API __declspec(dllexport)
#else
#define JV_SIM_API __declspec(dllimport)
#endif
#define JV_PLATFORM_API JV_SIM_API
#define JV_FACE_API
#define JV_STAND_IN(name)
#else
#define JV_CALL
#define JV_API __attribute__((visibility("default")))
#define JV_PLATFORM_API JV_API
#define JV_FACE_API JV_API
#define JV_SIM_API JV_API
/* The name under which the linker knows a function that stands in for one of the system or of a driver: the process may
 * hold another library that has the plain name. */
#define JV_STAND_IN(name) __asm__("jorvet_" #name)
#endif

#endif
